// The single AppSettings row: fetched, created with the defaults when
// missing, and changed field by field (the `klipora settings` command).
// Thread rules: the context's thread.
#pragma once

#include <memory>
#include <string>

#include "library/app_settings.h"
#include "library/model_context.h"

namespace klipora::library {

// The settings row; when the store has none, a row with the defaults is
// inserted and saved. Should two processes have created one each, the row
// with the smallest id wins, so every process reads the same row.
Result<std::shared_ptr<AppSettings>> fetchOrCreateSettings(ModelContext& context);

}  // namespace klipora::library
