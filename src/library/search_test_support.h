// A real SQLite store in memory, with the schema and search index, for the
// tests of the library query and saved searches.
#pragma once

#include <gtest/gtest.h>

#include "library/model_container.h"
#include "library/screenshot_item.h"

namespace klipora::library {

class SearchStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto db = Database::open(":memory:");
    ASSERT_TRUE(db.has_value());
    ASSERT_TRUE(migrateToCurrentSchema(**db).ok());
    context_ = std::make_unique<ModelContext>(std::move(*db));
  }

  std::shared_ptr<ScreenshotItem> add(const std::string& text, double daysAgo = 1,
                                      const std::string& tags = "") {
    auto item = std::make_shared<ScreenshotItem>();
    item->originalFilename = "Screenshot " + std::to_string(++count_) + ".png";
    item->ocrText = text;
    item->userTagsRaw = tags;
    item->importedAt = now_.addingTimeInterval(-daysAgo * 86400);
    item->checksum = "sum" + std::to_string(count_);
    context_->insert(item);
    EXPECT_TRUE(context_->save().ok());
    return item;
  }

  Date now_ = Date::fromSecondsSince1970(1'750'000'000);
  std::unique_ptr<ModelContext> context_;
  int count_ = 0;
};

}  // namespace klipora::library
