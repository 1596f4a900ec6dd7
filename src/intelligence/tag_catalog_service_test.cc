#include "intelligence/tag_catalog_service.h"

#include <gtest/gtest.h>

#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "platform/testing/manual_clock.h"

namespace klipora::intelligence {
namespace {

using library::ScreenshotItem;
using library::UserTag;

class TagCatalogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto db = library::Database::open(":memory:");
    ASSERT_TRUE(db && library::migrateToCurrentSchema(**db).ok());
    context_ = std::make_unique<library::ModelContext>(std::move(*db));
  }
  std::shared_ptr<ScreenshotItem> item(const std::vector<std::string>& tags = {}) {
    auto i = std::make_shared<ScreenshotItem>();
    i->setUserTags(tags);
    context_->insert(i);
    EXPECT_TRUE(context_->save().ok());
    return i;
  }
  std::vector<std::shared_ptr<UserTag>> catalogue() {
    library::FetchDescriptor d;
    d.sortBy = "normalizedName";
    return *context_->fetch<UserTag>(d);
  }

  testing::ManualClock clock_;
  std::vector<UUID> notified_;
  TagCatalogService service_{clock_, [this](const std::vector<UUID>& ids) {
                               notified_.insert(notified_.end(), ids.begin(), ids.end());
                             }};
  std::unique_ptr<library::ModelContext> context_;
};

TEST(TagNormalizationTest, NormalizesValidatesAndColours) {
  EXPECT_EQ(TagNormalization::normalize("  Work   Stuff\n"), "work stuff");
  EXPECT_EQ(TagNormalization::normalize("ÜBER"), "über");
  EXPECT_EQ(validateTagName(" \n "), UserTagValidationError::emptyName);
  EXPECT_EQ(validateTagName("a\tb"), UserTagValidationError::invalidCharacter);
  EXPECT_EQ(validateTagName(std::string("a") + '\x1f' + "b"), UserTagValidationError::invalidCharacter);
  EXPECT_EQ(validateTagName("bad \xff"), UserTagValidationError::invalidCharacter);
  EXPECT_EQ(validateTagName(std::string(65, 'x')), UserTagValidationError::tooLong);
  EXPECT_EQ(validateTagName("Project #1, café"), std::nullopt);
  EXPECT_EQ(message(UserTagValidationError::emptyName), "Tag name cannot be empty");
  // Stable for one name within a run, whatever its spelling; always a palette entry.
  EXPECT_EQ(TagNormalization::defaultColorHex("Work"), TagNormalization::defaultColorHex(" work"));
  EXPECT_TRUE(TagNormalization::isColorHex(TagNormalization::defaultColorHex("x")));
  EXPECT_FALSE(TagNormalization::isColorHex("#12345G"));
}

TEST_F(TagCatalogTest, CreateRejectsDuplicatesAndBadNames) {
  auto tag = service_.create(*context_, " Work ", "#22C55E");
  ASSERT_TRUE(tag.has_value());
  EXPECT_EQ((*tag)->name, "Work");
  EXPECT_EQ((*tag)->normalizedName, "work");
  auto again = service_.create(*context_, "WORK");
  ASSERT_FALSE(again.has_value());
  EXPECT_EQ(again.error().message(), "A tag with this name already exists");
  EXPECT_EQ(service_.create(*context_, "  ").error().message(), "Tag name cannot be empty");
  EXPECT_FALSE(service_.create(*context_, "x", "blue").has_value());
  EXPECT_EQ(catalogue().size(), 1u);
  EXPECT_EQ((*service_.ensureExists(*context_, "work"))->id, (*tag)->id);
}

TEST_F(TagCatalogTest, AssignRemoveToggle) {
  auto a = item({"work"});
  auto b = item();
  ASSERT_TRUE(service_.create(*context_, "Work").has_value());
  ASSERT_TRUE(service_.assign(*context_, "WORK", {a->id, b->id}).ok());
  EXPECT_EQ(a->userTags(), std::vector<std::string>{"work"});  // already carried: unchanged
  EXPECT_EQ(b->userTags(), std::vector<std::string>{"Work"});  // catalogue spelling
  EXPECT_EQ(notified_, std::vector<UUID>{b->id});
  EXPECT_EQ(service_.assign(*context_, "x", {UUID::Random()}).code(), Status::Code::kNotFound);

  // Mixed selection: added to all; then all carry it, so it goes.
  auto c = item();
  EXPECT_EQ(service_.toggle(*context_, "Work", std::nullopt, {a->id, c->id}), true);
  EXPECT_EQ(c->userTags(), std::vector<std::string>{"Work"});
  EXPECT_EQ(service_.toggle(*context_, "work", std::nullopt, {a->id, c->id}), false);
  EXPECT_TRUE(a->userTags().empty());
  ASSERT_TRUE(service_.remove(*context_, " WORK", {b->id}).ok());
  EXPECT_TRUE(b->userTags().empty());
}

TEST_F(TagCatalogTest, RenameThenMergeIntoAnExistingTag) {
  auto a = item({"Work"});
  auto b = item({"Work", "Personal"});
  auto c = item({"Personal"});
  ASSERT_TRUE(service_.ensureCatalogSynced(*context_).ok());
  auto personalColor = catalogue()[0]->colorHex;

  auto never = [](const TagMergeQuestion&) { return false; };
  EXPECT_EQ(service_.rename(*context_, "Work", "work stuff", std::nullopt, never),
            TagRenameOutcome::renamed);
  EXPECT_EQ(b->userTags(), (std::vector<std::string>{"work stuff", "Personal"}));

  TagMergeQuestion asked;
  auto yes = [&](const TagMergeQuestion& q) {
    asked = q;
    return true;
  };
  EXPECT_EQ(service_.rename(*context_, "work  Stuff ", "personal", std::nullopt, never),
            TagRenameOutcome::cancelled);
  EXPECT_EQ(a->userTags(), std::vector<std::string>{"work stuff"});
  EXPECT_EQ(service_.rename(*context_, "work  Stuff ", "personal", std::nullopt, yes),
            TagRenameOutcome::merged);
  EXPECT_EQ(asked.title, "Tag Already Exists");
  EXPECT_EQ(asked.message, "A tag named 'Personal' already exists. Merge these tags?");
  EXPECT_EQ(a->userTags(), std::vector<std::string>{"Personal"});
  EXPECT_EQ(b->userTags(), std::vector<std::string>{"Personal"});  // once
  EXPECT_EQ(c->userTags(), std::vector<std::string>{"Personal"});
  auto tags = catalogue();
  ASSERT_EQ(tags.size(), 1u);
  EXPECT_EQ(tags[0]->colorHex, personalColor);
  EXPECT_EQ(service_.rename(*context_, "nothing", "x", std::nullopt, yes).error().code(),
            Status::Code::kNotFound);
}

TEST_F(TagCatalogTest, DeleteAndReconcile) {
  auto a = item({"Old", "keep"});
  auto dup1 = std::make_shared<UserTag>(UserTag{.normalizedName = "keep", .name = "Keep",
                                                .colorHex = "#3B82F6",
                                                .createdAt = Date::fromSecondsSince1970(1),
                                                .updatedAt = Date::fromSecondsSince1970(1)});
  auto dup2 = std::make_shared<UserTag>(UserTag{.normalizedName = "keep", .name = "KEEP",
                                                .colorHex = "#EF4444",
                                                .createdAt = Date::fromSecondsSince1970(2),
                                                .updatedAt = Date::fromSecondsSince1970(2)});
  context_->insert(dup1);
  context_->insert(dup2);
  ASSERT_TRUE(context_->save().ok());
  ASSERT_TRUE(service_.ensureCatalogSynced(*context_).ok());
  auto tags = catalogue();
  ASSERT_EQ(tags.size(), 2u);  // "keep" once (the oldest), "old" added
  EXPECT_EQ(tags[0]->id, dup1->id);
  EXPECT_EQ(tags[1]->normalizedName, "old");
  EXPECT_TRUE(service_.didEnsureCatalogThisLaunch());

  EXPECT_EQ(*service_.usageCount(*context_, "old"), 1);
  EXPECT_EQ(TagCatalogService::deleteConfirmation(1),
            "This tag will be removed from your catalog and from 1 screenshot.");
  EXPECT_EQ(TagCatalogService::deleteConfirmation(0),
            "This tag will be removed from your catalog. This action can’t be undone.");
  ASSERT_TRUE(service_.deleteTag(*context_, "OLD").ok());
  EXPECT_EQ(a->userTags(), std::vector<std::string>{"keep"});
  EXPECT_EQ(catalogue().size(), 1u);
  auto suggestions = service_.suggestions(*context_);
  ASSERT_EQ(suggestions->size(), 1u);
  EXPECT_EQ((*suggestions)[0].count, 1);
}

TEST_F(TagCatalogTest, FailedSaveChangesNothing) {
  auto a = item({"Work"});
  ASSERT_TRUE(service_.ensureCatalogSynced(*context_).ok());
  ASSERT_TRUE(context_->database().exec("CREATE TRIGGER refuse BEFORE UPDATE ON ScreenshotItem "
                                        "BEGIN SELECT RAISE(ABORT, 'disk says no'); END").ok());
  EXPECT_FALSE(service_.rename(*context_, "work", "job", std::nullopt, nullptr).has_value());
  EXPECT_FALSE(service_.deleteTag(*context_, "work").ok());
  EXPECT_EQ(a->userTags(), std::vector<std::string>{"Work"});
  ASSERT_EQ(catalogue().size(), 1u);
  EXPECT_EQ(catalogue()[0]->name, "Work");
}

}  // namespace
}  // namespace klipora::intelligence
