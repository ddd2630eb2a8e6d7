// `kestrow shares add` and the share editor turn typed text into a share record: the port field,
// the host (which may be a whole URL) and the preview built from them.
#include <cstddef>
#include <cstdint>
#include <string>

#include "shares/share_editor_rules.h"
#include "shares/share_url.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (const auto port = kestrow::portFromField(text)) {
        if (*port != 0 && (*port < 1 || *port > 65535)) __builtin_trap();
    }
    kestrow::ShareForm form;
    form.protocol = size % 2 ? kestrow::ShareProtocol::webdav : kestrow::ShareProtocol::smb;
    const std::size_t cut = size / 3;
    form.host = text.substr(0, cut);
    form.portText = text.substr(cut, cut);
    form.shareName = text.substr(2 * cut);
    form.username = text.substr(cut / 2, cut);
    (void)kestrow::formPreview(form);
    if (kestrow::canSave(form)) {
        const kestrow::SMBShare share = kestrow::shareRecord(form);
        (void)kestrow::displayHost(share);
        (void)kestrow::webDAVProbeTarget(share);
    }
    return 0;
}
