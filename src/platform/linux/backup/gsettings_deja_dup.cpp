#include "platform/linux/backup/gsettings_deja_dup.h"

#include <gio/gio.h>

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrow {
namespace {

// The locations' own settings, by child name; each is looked up like the main schema, so an
// older or trimmed Déjà Dup without one of them still reads.
constexpr std::array<std::string_view, 5> kChildren = {"local", "drive", "remote", "google",
                                                       "microsoft"};

// One settings object with its schema, for checking keys before reading them: GSettings aborts
// on a key its schema does not have.
struct Node {
    GSettings* settings = nullptr;
    GSettingsSchema* schema = nullptr;

    std::optional<std::string> text(const char* key) const {
        std::optional<std::string> out;
        withValue(key, "s", [&out](GVariant* v) { out = g_variant_get_string(v, nullptr); });
        return out;
    }
    std::optional<bool> flag(const char* key) const {
        std::optional<bool> out;
        withValue(key, "b", [&out](GVariant* v) { out = g_variant_get_boolean(v) != FALSE; });
        return out;
    }
    std::optional<int> number(const char* key) const {
        std::optional<int> out;
        withValue(key, "i", [&out](GVariant* v) { out = g_variant_get_int32(v); });
        return out;
    }

private:
    template <typename Use>
    void withValue(const char* key, std::string_view type, Use use) const {
        if (settings == nullptr || !g_settings_schema_has_key(schema, key)) return;
        GVariant* value = g_settings_get_value(settings, key);
        if (value == nullptr) return;
        if (type == g_variant_get_type_string(value)) use(value);
        g_variant_unref(value);
    }
};

void assign(std::string& field, std::optional<std::string> value) {
    if (value) field = std::move(*value);
}

// Calls back on every "changed" of the settings objects it holds, until it goes.
class SignalWatch final : public DejaDupSettingsReader::Watch {
public:
    SignalWatch(const std::vector<GSettings*>& objects, std::function<void()> changed)
        : changed_(std::move(changed)) {
        for (GSettings* object : objects) {
            g_object_ref(object);
            const gulong id = g_signal_connect_data(
                object, "changed", reinterpret_cast<GCallback>(&SignalWatch::onChanged), this,
                nullptr, static_cast<GConnectFlags>(0));
            connections_.emplace_back(object, id);
            readEveryKey(object);
        }
    }
    ~SignalWatch() override {
        for (const auto& [object, id] : connections_) {
            g_signal_handler_disconnect(object, id);
            g_object_unref(object);
        }
    }
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

private:
    // GSettings promises "changed" only for keys read while a handler is connected: a store
    // that tells it of changes lazily would otherwise leave Déjà Dup's writes unheard.
    static void readEveryKey(GSettings* object) {
        GSettingsSchema* schema = nullptr;
        g_object_get(object, "settings-schema", &schema, nullptr);
        if (schema == nullptr) return;
        gchar** keys = g_settings_schema_list_keys(schema);
        for (gchar** key = keys; *key != nullptr; ++key)
            g_variant_unref(g_settings_get_value(object, *key));
        g_strfreev(keys);
        g_settings_schema_unref(schema);
    }

    static void onChanged(GSettings* /*settings*/, const char* /*key*/, gpointer self) {
        static_cast<SignalWatch*>(self)->changed_();
    }

    std::function<void()> changed_;
    std::vector<std::pair<GSettings*, gulong>> connections_;
};

}  // namespace

struct GSettingsDejaDup::Tree {
    Node main;
    std::array<Node, kChildren.size()> children{};

    ~Tree() {
        for (Node* node : all()) {
            if (node->settings != nullptr) g_object_unref(node->settings);
            if (node->schema != nullptr) g_settings_schema_unref(node->schema);
        }
    }

    std::vector<Node*> all() {
        std::vector<Node*> nodes{&main};
        for (Node& child : children) nodes.push_back(&child);
        return nodes;
    }

    const Node& child(std::string_view name) const {
        for (std::size_t i = 0; i < kChildren.size(); ++i)
            if (kChildren[i] == name) return children[i];
        return children[0];
    }
};

GSettingsDejaDup::GSettingsDejaDup(std::optional<std::filesystem::path> schemaDirectory) {
    GSettingsSchemaSource* source = nullptr;
    if (schemaDirectory) {
        source = g_settings_schema_source_new_from_directory(schemaDirectory->c_str(), nullptr,
                                                             FALSE, nullptr);
    } else if (GSettingsSchemaSource* system = g_settings_schema_source_get_default()) {
        source = g_settings_schema_source_ref(system);
    }
    if (source == nullptr) return;

    if (GSettingsSchema* schema = g_settings_schema_source_lookup(source, kSchemaId, TRUE)) {
        tree_ = std::make_unique<Tree>();
        tree_->main = {g_settings_new_full(schema, nullptr, nullptr), schema};
        const std::string parentPath = g_settings_schema_get_path(schema);
        for (std::size_t i = 0; i < kChildren.size(); ++i) {
            std::string id = std::string(kSchemaId) + ".";
            id += static_cast<char>(g_ascii_toupper(kChildren[i].front()));
            id += kChildren[i].substr(1);
            GSettingsSchema* child = g_settings_schema_source_lookup(source, id.c_str(), TRUE);
            if (child == nullptr) continue;
            const char* own = g_settings_schema_get_path(child);
            const std::string path =
                own != nullptr ? std::string(own) : parentPath + std::string(kChildren[i]) + "/";
            tree_->children[i] = {g_settings_new_full(child, nullptr, path.c_str()), child};
        }
    }
    g_settings_schema_source_unref(source);
}

GSettingsDejaDup::~GSettingsDejaDup() = default;

std::optional<DejaDupSettings> GSettingsDejaDup::read() {
    if (!tree_) return std::nullopt;
    DejaDupSettings s;
    const Node& main = tree_->main;
    assign(s.lastBackup, main.text("last-backup"));
    assign(s.lastRun, main.text("last-run"));
    s.periodic = main.flag("periodic").value_or(s.periodic);
    s.periodicPeriod = main.number("periodic-period").value_or(s.periodicPeriod);
    assign(s.backend, main.text("backend"));
    assign(s.tool, main.text("tool"));
    assign(s.localFolder, tree_->child("local").text("folder"));
    assign(s.driveUuid, tree_->child("drive").text("uuid"));
    assign(s.driveName, tree_->child("drive").text("name"));
    assign(s.driveFolder, tree_->child("drive").text("folder"));
    assign(s.remoteUri, tree_->child("remote").text("uri"));
    assign(s.remoteFolder, tree_->child("remote").text("folder"));
    assign(s.googleFolder, tree_->child("google").text("folder"));
    assign(s.microsoftFolder, tree_->child("microsoft").text("folder"));
    if (const char* host = g_get_host_name()) s.hostName = host;
    return s;
}

std::unique_ptr<DejaDupSettingsReader::Watch> GSettingsDejaDup::watch(
    std::function<void()> changed) {
    if (!tree_) return nullptr;
    std::vector<GSettings*> objects;
    for (Node* node : tree_->all())
        if (node->settings != nullptr) objects.push_back(node->settings);
    return std::make_unique<SignalWatch>(objects, std::move(changed));
}

}  // namespace kestrow
