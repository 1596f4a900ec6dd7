// CustomCategoryCatalog: the user's own categories as records: create,
// rename, change the description (which rebuilds the keywords and
// centroid), delete (the screenshots filed under it are unfiled). Every
// change posts "com.klipora.customCategoriesDidChange"; unfiling posts
// "com.klipora.userCategoryDidChange" too.
//
// Thread rules: the thread that owns the context; create() and
// changeDescription() block while the model expands the keywords.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "intelligence/custom_category_keyword_builder.h"
#include "library/records.h"
#include "platform/clock.h"
#include "platform/notification_center.h"

namespace klipora::intelligence {

class CustomCategoryCatalog {
 public:
  CustomCategoryCatalog(library::ModelContext& context, Clock& clock,
                        CustomCategoryKeywordBuilder& keywords,
                        NotificationCenter* notifications = nullptr)
      : context_(context), clock_(clock), keywords_(keywords), notifications_(notifications) {}

  // Oldest first, the order the model sees them in.
  Result<std::vector<std::shared_ptr<library::CustomCategory>>> list();
  // By id, or by name ignoring case; NotFound names what was looked for.
  Result<std::shared_ptr<library::CustomCategory>> find(const std::string& idOrName);
  // InvalidArgument for an empty name, AlreadyExists for a name in use.
  Result<std::shared_ptr<library::CustomCategory>> create(const std::string& name,
                                                          const std::string& description);
  Status rename(const UUID& id, const std::string& name);
  Status changeDescription(const UUID& id, const std::string& description);
  // The number of screenshots unfiled.
  Result<int64_t> remove(const UUID& id);
  // Screenshots filed under the category, not in the trash.
  Result<int64_t> itemCount(const UUID& id);

 private:
  Status checkName(const std::string& name, const UUID* except);
  void post(const char* name);

  library::ModelContext& context_;
  Clock& clock_;
  CustomCategoryKeywordBuilder& keywords_;
  NotificationCenter* notifications_;
};

}  // namespace klipora::intelligence
