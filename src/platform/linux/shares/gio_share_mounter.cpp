#include "platform/linux/shares/gio_share_mounter.h"

#include <gio/gio.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <optional>

#include "platform/linux/shares/gvfs_mount_table.h"

namespace kestrow {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr guint kPollMs = 100;
// After a cancel, how long GIO gets to hand the call back before it is abandoned.
constexpr auto kDrainLimit = std::chrono::seconds(2);

// Lives on the heap: when GIO does not answer even after a cancel, the call is abandoned and the
// finish callback (if it ever runs) frees it.
struct CallState {
    bool done = false;
    bool abandoned = false;
    GError* error = nullptr;
    // The result of the last call on this kind of file, for `unmount`.
    bool unmounted = false;
};

struct Credentials {
    std::string user;
    std::string domain;
    const std::string* password = nullptr;  // the caller's; never copied by us
    int asked = 0;
};

Credentials credentialsOf(const MountRequest& request) {
    Credentials credentials;
    credentials.user = request.username;
    if (const auto slash = request.username.find('\\'); slash != std::string::npos) {
        credentials.domain = request.username.substr(0, slash);
        credentials.user = request.username.substr(slash + 1);
    }
    if (!request.password.empty()) credentials.password = &request.password;
    return credentials;
}

void askPassword(GMountOperation* operation, const char* /*message*/, const char* /*defaultUser*/,
                 const char* /*defaultDomain*/, GAskPasswordFlags flags, gpointer data) {
    auto* credentials = static_cast<Credentials*>(data);
    // A second ask means the first answer was refused: asking again would only lock the account.
    if (++credentials->asked > 1) {
        g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
        return;
    }
    if (credentials->password == nullptr) {
        if ((flags & G_ASK_PASSWORD_ANONYMOUS_SUPPORTED) != 0) {
            g_mount_operation_set_anonymous(operation, TRUE);
            g_mount_operation_reply(operation, G_MOUNT_OPERATION_HANDLED);
        } else {
            g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
        }
        return;
    }
    g_mount_operation_set_anonymous(operation, FALSE);
    if (!credentials->user.empty())
        g_mount_operation_set_username(operation, credentials->user.c_str());
    if (!credentials->domain.empty())
        g_mount_operation_set_domain(operation, credentials->domain.c_str());
    g_mount_operation_set_password(operation, credentials->password->c_str());
    g_mount_operation_set_password_save(operation, G_PASSWORD_SAVE_NEVER);
    g_mount_operation_reply(operation, G_MOUNT_OPERATION_HANDLED);
}

// Questions (an untrusted certificate, "log in anyway?") are never answered yes on the user's
// behalf.
void askQuestion(GMountOperation* operation, const char*, const char**, gpointer) {
    g_mount_operation_reply(operation, G_MOUNT_OPERATION_ABORTED);
}

// GLib keeps its copy of the password until the operation is freed, and frees it unwiped.
void wipePassword(GMountOperation* operation) {
    if (auto* password = const_cast<char*>(g_mount_operation_get_password(operation)))
        explicit_bzero(password, strlen(password));
}

void mountFinished(GObject* source, GAsyncResult* result, gpointer data) {
    auto* state = static_cast<CallState*>(data);
    g_file_mount_enclosing_volume_finish(G_FILE(source), result, &state->error);
    state->done = true;
    if (state->abandoned) {
        g_clear_error(&state->error);
        delete state;
    }
}

void unmountFinished(GObject* source, GAsyncResult* result, gpointer data) {
    auto* state = static_cast<CallState*>(data);
    state->unmounted =
        g_mount_unmount_with_operation_finish(G_MOUNT(source), result, &state->error) != FALSE;
    state->done = true;
    if (state->abandoned) {
        g_clear_error(&state->error);
        delete state;
    }
}

gboolean wakeUp(gpointer) {
    return G_SOURCE_CONTINUE;
}

// A thread-default main context for one call, with a 0.1 s tick so that the caller's checks run
// even when GIO is silent.
class CallContext {
public:
    CallContext() : context_(g_main_context_new()) {
        g_main_context_push_thread_default(context_);
        tick_ = g_timeout_source_new(kPollMs);
        g_source_set_callback(tick_, wakeUp, nullptr, nullptr);
        g_source_attach(tick_, context_);
    }
    ~CallContext() {
        // GIO finishes a call with clean-ups queued on this context (the mount operation's
        // export on the bus): they run now, or they would be lost with the context.
        for (int round = 0; round < 100 && g_main_context_pending(context_); ++round)
            g_main_context_iteration(context_, FALSE);
        g_source_destroy(tick_);
        g_source_unref(tick_);
        g_main_context_pop_thread_default(context_);
        g_main_context_unref(context_);
    }
    CallContext(const CallContext&) = delete;
    CallContext& operator=(const CallContext&) = delete;

    void iterate() { g_main_context_iteration(context_, TRUE); }

    // Runs the context until the call is done or the drain limit passes; false when abandoned.
    bool drain(CallState& state) {
        const auto until = SteadyClock::now() + kDrainLimit;
        while (!state.done && SteadyClock::now() < until) iterate();
        return state.done;
    }

private:
    GMainContext* context_;
    GSource* tick_ = nullptr;
};

// GIO's words for "the mount could not even be tried": no gvfs for this kind of location, no
// mount service, a URL GIO does not accept.
bool couldNotTry(const GError* error) {
    if (error->domain == G_DBUS_ERROR) return true;
    if (error->domain != G_IO_ERROR) return false;
    switch (error->code) {
        case G_IO_ERROR_NOT_SUPPORTED:
        case G_IO_ERROR_NOT_MOUNTABLE_FILE:
        case G_IO_ERROR_NOT_MOUNTED:  // gvfs: "Location is not mountable"
        case G_IO_ERROR_INVALID_ARGUMENT:
        case G_IO_ERROR_INVALID_FILENAME:
        case G_IO_ERROR_DBUS_ERROR:
            return true;
        default:
            return false;
    }
}

std::optional<std::string> bridgeErrorOf(const GError* error) {
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_ALREADY_MOUNTED))
        return std::string("Connecting servers: Already mounted by the system");
    if (couldNotTry(error)) return std::string("Connecting servers: ") + error->message;
    return std::nullopt;
}

std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// The location GIO knows the mount by, rebuilt from its mount-table row.
std::string gvfsUriOf(const MountEntry& entry) {
    if (entry.fsType == "smbfs") return "smb:" + entry.from;
    if (entry.from.starts_with("https://")) return "davs://" + entry.from.substr(8);
    if (entry.from.starts_with("http://")) return "dav://" + entry.from.substr(7);
    return entry.from;
}

// The location as GIO names it: WebDAV's http(s) become gvfs's dav(s), and a password written
// into the URL is dropped (it is only ever handed over when the server asks for it).
std::string gioUriOf(const MountRequest& request) {
    std::string uri = request.url;
    const auto schemeEnd = uri.find("://");
    if (schemeEnd == std::string::npos) return uri;
    if (request.protocol == ShareProtocol::webdav) {
        const std::string scheme = uri.substr(0, schemeEnd);
        if (scheme == "http" || scheme == "webdav")
            uri.replace(0, schemeEnd, "dav");
        else if (scheme == "https")
            uri.replace(0, schemeEnd, "davs");
    }
    const auto authority = uri.find("://") + 3;
    const auto authorityEnd = std::min(uri.find('/', authority), uri.size());
    const auto at = uri.rfind('@', authorityEnd - 1);
    if (at != std::string::npos && at >= authority) {
        const auto colon = uri.find(':', authority);
        if (colon != std::string::npos && colon < at) {
            explicit_bzero(uri.data() + colon, at - colon);
            uri.erase(colon, at - colon);
        }
    }
    return uri;
}

}  // namespace

MountCallResult GioShareMounter::mount(const MountRequest& request,
                                       const std::function<bool()>& isMounted,
                                       std::stop_token stop) {
    const auto limit = SteadyClock::now() + std::chrono::duration_cast<SteadyClock::duration>(
                                                std::chrono::duration<double>(request.callSeconds));
    CallContext context;
    Credentials credentials = credentialsOf(request);
    std::string uri = gioUriOf(request);
    GFile* file = g_file_new_for_uri(uri.c_str());
    GCancellable* cancellable = g_cancellable_new();
    GMountOperation* operation = g_mount_operation_new();
    g_signal_connect(operation, "ask-password", G_CALLBACK(askPassword), &credentials);
    g_signal_connect(operation, "ask-question", G_CALLBACK(askQuestion), nullptr);

    auto* state = new CallState;
    g_file_mount_enclosing_volume(file, G_MOUNT_MOUNT_NONE, operation, cancellable, mountFinished,
                                  state);
    bool cancelled = false;
    auto nextLook = SteadyClock::now() + std::chrono::milliseconds(kPollMs);
    while (!state->done) {
        context.iterate();
        if (state->done) break;
        // The table is asked at the 0.1 s pace however often GIO wakes the loop: reading it is
        // not free.
        bool seenMounted = false;
        if (isMounted && SteadyClock::now() >= nextLook) {
            seenMounted = isMounted();
            nextLook = SteadyClock::now() + std::chrono::milliseconds(kPollMs);
        }
        if (stop.stop_requested() || SteadyClock::now() >= limit || seenMounted) {
            cancelled = true;
            g_cancellable_cancel(cancellable);
            break;
        }
    }
    MountCallResult result;
    if (!state->done && !context.drain(*state)) {
        // GIO never answered the cancel: the callback frees the state if it ever comes.
        state->abandoned = true;
    } else {
        if (state->error && !cancelled) result.bridgeError = bridgeErrorOf(state->error);
        g_clear_error(&state->error);
        delete state;
    }
    g_signal_handlers_disconnect_by_data(operation, &credentials);
    wipePassword(operation);
    g_object_unref(operation);
    g_object_unref(cancellable);
    g_object_unref(file);
    return result;
}

bool GioShareMounter::unmount(const std::string& mountedOn, std::string* error) {
    const std::string wanted = withoutTrailingSlash(mountedOn);
    // Only what the mount service lists at that path is a gvfs mount; anything else at the path
    // (a kernel or FUSE mount) was made by someone else and is refused.
    const auto mounts = GvfsMountTable::gvfsMounts(GvfsMountTable::defaultVolumesRoot());
    std::optional<MountEntry> found;
    if (mounts)
        for (const MountEntry& entry : *mounts)
            if (withoutTrailingSlash(entry.mountedOn) == wanted) found = entry;
    if (!found) {
        if (error) *error = "Not a network mount of this session: " + mountedOn;
        return false;
    }

    CallContext context;
    // Through the FUSE path GIO finds the gvfs mount itself; without gvfsd-fuse the path does
    // not exist, and the mount is found by its location instead.
    GFile* file = g_file_new_for_path(wanted.c_str());
    GMount* mount = g_file_find_enclosing_mount(file, nullptr, nullptr);
    g_object_unref(file);
    if (mount == nullptr) {
        GFile* location = g_file_new_for_uri(gvfsUriOf(*found).c_str());
        mount = g_file_find_enclosing_mount(location, nullptr, nullptr);
        g_object_unref(location);
    }
    if (mount == nullptr) {
        if (error) *error = "The mount service could not find the mount at " + mountedOn;
        return false;
    }
    auto* state = new CallState;
    g_mount_unmount_with_operation(mount, G_MOUNT_UNMOUNT_NONE, nullptr, nullptr, unmountFinished,
                                   state);
    const auto until = SteadyClock::now() + std::chrono::seconds(10);
    while (!state->done && SteadyClock::now() < until) context.iterate();
    bool gone = false;
    if (!state->done) {
        state->abandoned = true;
        if (error) *error = "The mount service did not answer in time";
    } else {
        gone = state->unmounted;
        if (!gone && error) *error = state->error ? state->error->message : "Unmount failed";
        g_clear_error(&state->error);
        delete state;
    }
    g_object_unref(mount);
    return gone;
}

}  // namespace kestrow
