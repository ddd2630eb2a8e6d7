#include "platform/linux/gio_trash.h"

#include <gio/gio.h>

#include <memory>
#include <string_view>

namespace kestrow {
namespace {

// GIO's messages quote the item's name, and a name may hold a newline: the reason stays on one
// line.
std::string oneLine(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                out += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c;
                break;
        }
    }
    return out;
}

}  // namespace

std::optional<std::string> GioTrash::moveByPath(const std::filesystem::path& item) {
    // An empty path would name the current folder.
    if (item.empty()) return "No item was named to move to the Trash";
    // The local implementation directly: the default one may load modules and reach for the
    // session bus, and a rename on a local disk needs neither.
    const std::unique_ptr<GFile, void (*)(gpointer)> file(
        g_vfs_get_file_for_path(g_vfs_get_local(), item.c_str()), g_object_unref);
    GError* rawError = nullptr;
    const bool moved = g_file_trash(file.get(), nullptr, &rawError) != FALSE;
    const std::unique_ptr<GError, void (*)(GError*)> error(rawError, g_error_free);
    if (moved) return std::nullopt;
    if (error == nullptr || error->message == nullptr) {
        return "Could not move " + oneLine(item.string()) + " to the Trash";
    }
    return oneLine(error->message);
}

}  // namespace kestrow
