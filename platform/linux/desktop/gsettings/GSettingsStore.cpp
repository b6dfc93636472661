#include <gio/gio.h>

#include <map>
#include <memory>
#include <utility>

#include "platform/linux/desktop/SettingsStore.h"

namespace zelvo::platform {

namespace {

struct Unref {
    void operator()(GVariant* value) const { g_variant_unref(value); }
    void operator()(GSettings* settings) const { g_object_unref(settings); }
    void operator()(GSettingsSchema* schema) const { g_settings_schema_unref(schema); }
};
template <typename T>
using Pointer = std::unique_ptr<T, Unref>;

void collect(GVariant* value, std::vector<std::string>& texts) {
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING)) {
        texts.emplace_back(g_variant_get_string(value, nullptr));
    } else if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN)) {
        texts.emplace_back(g_variant_get_boolean(value) ? "true" : "false");
    } else if (g_variant_is_container(value)) {
        for (gsize i = 0; i < g_variant_n_children(value); ++i)
            collect(Pointer<GVariant>(g_variant_get_child_value(value, i)).get(), texts);
    }
}

void settingChanged(GSettings*, const char*, const std::function<void()>* changed) {
    (*changed)();
}

class GSettingsStore : public SettingsStore {
  public:
    GSettingsStore(const std::vector<std::string>& names, std::function<void()> changed)
        : changed_(std::move(changed)) {
        auto* source = g_settings_schema_source_get_default();
        for (const auto& name : names) {
            // The library ends the process that asks for a schema which is not there.
            Pointer<GSettingsSchema> schema(
                source ? g_settings_schema_source_lookup(source, name.c_str(), TRUE) : nullptr);
            if (!schema)
                continue;
            Pointer<GSettings> settings(g_settings_new_full(schema.get(), nullptr, nullptr));
            g_signal_connect(settings.get(), "changed", G_CALLBACK(settingChanged), &changed_);
            schemas_.emplace(name, Schema{std::move(schema), std::move(settings)});
        }
    }

    bool hasSchema(const std::string& schema) const override { return schemas_.contains(schema); }

    std::vector<std::string> texts(const std::string& schema, const char* key) const override {
        std::vector<std::string> result;
        auto found = schemas_.find(schema);
        if (found != schemas_.end() &&
            g_settings_schema_has_key(found->second.description.get(), key))
            collect(
                Pointer<GVariant>(g_settings_get_value(found->second.settings.get(), key)).get(),
                result);
        return result;
    }

  private:
    struct Schema {
        Pointer<GSettingsSchema> description;
        Pointer<GSettings> settings;
    };

    std::function<void()> changed_;
    std::map<std::string, Schema> schemas_;
};

}  // namespace

}  // namespace zelvo::platform

extern "C" __attribute__((visibility("default")))
zelvo::platform::MakeSettingsStore zelvoMakeSettingsStore;

zelvo::platform::SettingsStore* zelvoMakeSettingsStore(const std::vector<std::string>& schemas,
                                                       std::function<void()> changed) {
    // Without a context of its own here, notices would go to a loop that another thread runs.
    if (!g_main_context_get_thread_default())
        return nullptr;
    return new zelvo::platform::GSettingsStore(schemas, std::move(changed));
}
