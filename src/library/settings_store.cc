#include "library/settings_store.h"

namespace klipora::library {

Result<std::shared_ptr<AppSettings>> fetchOrCreateSettings(ModelContext& context) {
  FetchDescriptor d;
  d.sortBy = "id";
  d.limit = 1;
  ASSIGN_OR_RETURN(auto rows, context.fetch<AppSettings>(d));
  if (!rows.empty()) return rows.front();
  auto settings = std::make_shared<AppSettings>();
  context.insert(settings);
  RETURN_IF_ERROR(context.save());
  return settings;
}

}  // namespace klipora::library
