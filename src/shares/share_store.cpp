#include "shares/share_store.h"

#include <system_error>

#include <nlohmann/json.hpp>

#include "support/atomic_file.h"

namespace kestrow {
namespace {

using Json = nlohmann::json;

std::string requiredText(const Json& object, const char* key) {
    return object.at(key).get<std::string>();
}

SMBShare decodeOne(const Json& object) {
    SMBShare share;
    share.id = requiredText(object, "id");
    share.name = requiredText(object, "name");
    if (const auto it = object.find("connectionProtocol"); it != object.end()) {
        const auto protocol = shareProtocolFromRaw(it->get<std::string>());
        if (!protocol) throw std::invalid_argument("connectionProtocol");
        share.connectionProtocol = *protocol;
    }
    if (const auto it = object.find("webDAVScheme"); it != object.end()) {
        const auto scheme = webDAVSchemeFromRaw(it->get<std::string>());
        if (!scheme) throw std::invalid_argument("webDAVScheme");
        share.webDAVScheme = *scheme;
    }
    share.host = requiredText(object, "host");
    if (const auto it = object.find("port"); it != object.end()) {
        if (!it->is_number_integer()) throw std::invalid_argument("port");
        share.port = it->get<std::int64_t>();
    }
    share.shareName = requiredText(object, "shareName");
    share.username = requiredText(object, "username");
    share.mountPoint = requiredText(object, "mountPoint");
    if (!object.at("autoMount").is_boolean()) throw std::invalid_argument("autoMount");
    share.autoMount = object.at("autoMount").get<bool>();
    for (const auto& [key, field] :
         {std::pair{"vpnServiceID", &share.vpnServiceID}, std::pair{"vpnName", &share.vpnName}}) {
        const auto it = object.find(key);
        if (it != object.end() && !it->is_null()) *field = it->get<std::string>();
    }
    return share;
}

}  // namespace

ShareStore::ShareStore(std::filesystem::path dataFolder)
    : file_(dataFolder / "MountWarden" / "shares.json") {
    std::error_code ignored;
    std::filesystem::create_directories(file_.parent_path(), ignored);
}

std::vector<SMBShare> ShareStore::decode(const std::string& text) {
    try {
        const Json array = Json::parse(text);
        if (!array.is_array()) return {};
        std::vector<SMBShare> shares;
        for (const Json& object : array) shares.push_back(decodeOne(object));
        return shares;
    } catch (const std::exception&) {
        return {};
    }
}

std::string ShareStore::encode(const std::vector<SMBShare>& shares) {
    // Keys in declaration order, as the file has always been written.
    std::string out = "[";
    for (const SMBShare& share : shares) {
        nlohmann::ordered_json object;
        object["id"] = share.id;
        object["name"] = share.name;
        object["connectionProtocol"] = std::string(rawText(share.connectionProtocol));
        object["webDAVScheme"] = std::string(rawText(share.webDAVScheme));
        object["host"] = share.host;
        object["port"] = share.port;
        object["shareName"] = share.shareName;
        object["username"] = share.username;
        object["mountPoint"] = share.mountPoint;
        object["autoMount"] = share.autoMount;
        if (share.vpnServiceID) object["vpnServiceID"] = *share.vpnServiceID;
        if (share.vpnName) object["vpnName"] = *share.vpnName;
        if (out.size() > 1) out += ",";
        out += object.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
    return out + "]";
}

std::vector<SMBShare> ShareStore::load() const {
    const auto text = readFile(file_);
    return text ? decode(*text) : std::vector<SMBShare>{};
}

bool ShareStore::save(const std::vector<SMBShare>& shares) const {
    // Written whole and atomically: a failed write keeps the previous list.
    return writeFileAtomically(file_, encode(shares));
}

}  // namespace kestrow
