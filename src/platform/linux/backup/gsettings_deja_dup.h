#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "platform/deja_dup_settings_reader.h"

namespace kestrow {

// Déjà Dup's settings through GSettings, the desktop's settings store, which tells every reader
// of a key when it changes: the watch follows the "changed" signal, delivered by the GLib main
// context that Qt's event loop runs on Linux, so a change made in Déjà Dup's window shows at
// once without polling. The schema is looked up first: GSettings aborts the process on a schema
// that is not installed, and a machine without Déjà Dup simply reads as nothing. The schemas are
// looked up once, as the process starts: installing Déjà Dup later is seen at the next start.
class GSettingsDejaDup final : public DejaDupSettingsReader {
public:
    // `schemaDirectory`: a folder of compiled schemas to use instead of the system's.
    explicit GSettingsDejaDup(std::optional<std::filesystem::path> schemaDirectory = std::nullopt);
    ~GSettingsDejaDup() override;
    GSettingsDejaDup(const GSettingsDejaDup&) = delete;
    GSettingsDejaDup& operator=(const GSettingsDejaDup&) = delete;

    std::optional<DejaDupSettings> read() override;
    std::unique_ptr<Watch> watch(std::function<void()> changed) override;

    static constexpr const char* kSchemaId = "org.gnome.DejaDup";

private:
    struct Tree;
    std::unique_ptr<Tree> tree_;  // none when the schema is not installed
};

}  // namespace kestrow
