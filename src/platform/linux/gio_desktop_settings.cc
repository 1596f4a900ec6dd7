#include "platform/linux/gio_desktop_settings.h"

#define G_SETTINGS_ENABLE_BACKEND
#include <gio/gio.h>
#include <gio/gsettingsbackend.h>

#include <memory>

namespace klipora {
namespace {

template <typename T, void (*Free)(T*)>
struct Unref {
  void operator()(T* p) const {
    if (p) Free(p);
  }
};
void UnrefObject(void* p) { g_object_unref(p); }
using SourcePtr = std::unique_ptr<GSettingsSchemaSource,
                                  Unref<GSettingsSchemaSource, g_settings_schema_source_unref>>;
using SchemaPtr = std::unique_ptr<GSettingsSchema, Unref<GSettingsSchema, g_settings_schema_unref>>;
using KeyPtr =
    std::unique_ptr<GSettingsSchemaKey, Unref<GSettingsSchemaKey, g_settings_schema_key_unref>>;
using ObjectPtr = std::unique_ptr<void, Unref<void, UnrefObject>>;
using VariantPtr = std::unique_ptr<GVariant, Unref<GVariant, g_variant_unref>>;

}  // namespace

std::optional<std::string> GioDesktopSettings::text(const std::string& schemaID,
                                                    const std::string& key) {
  GSettingsSchemaSource* installed = g_settings_schema_source_get_default();
  SourcePtr source(installed ? g_settings_schema_source_ref(installed) : nullptr);
  if (!schemaFolder_.empty()) {
    source.reset(g_settings_schema_source_new_from_directory(schemaFolder_.c_str(), installed,
                                                             FALSE, nullptr));
  }
  if (!source) return std::nullopt;
  SchemaPtr schema(g_settings_schema_source_lookup(source.get(), schemaID.c_str(), TRUE));
  // A relocatable schema has no settings of its own to read.
  if (!schema || !g_settings_schema_get_path(schema.get()) ||
      !g_settings_schema_has_key(schema.get(), key.c_str())) {
    return std::nullopt;
  }
  KeyPtr schemaKey(g_settings_schema_get_key(schema.get(), key.c_str()));
  if (!g_variant_type_equal(g_settings_schema_key_get_value_type(schemaKey.get()),
                            G_VARIANT_TYPE_STRING)) {
    return std::nullopt;
  }
  ObjectPtr backend(
      keyFile_.empty() ? nullptr : g_keyfile_settings_backend_new(keyFile_.c_str(), "/", nullptr));
  ObjectPtr settings(
      g_settings_new_full(schema.get(), static_cast<GSettingsBackend*>(backend.get()), nullptr));
  VariantPtr value(g_settings_get_value(static_cast<GSettings*>(settings.get()), key.c_str()));
  if (!value) return std::nullopt;
  return std::string(g_variant_get_string(value.get(), nullptr));
}

}  // namespace klipora
