#pragma once

#include <functional>
#include <memory>

namespace kestrow {

// The Time Machine settings reader as the app's launch and reopen rules see it.
class PreferencesFileHandle {
public:
    virtual ~PreferencesFileHandle() = default;
    virtual bool hasAccess() const = 0;
    virtual bool demo() const = 0;
    // Asks again whether the settings can be read; when they can, starts reading and watching,
    // otherwise stops reading with no problem text.
    virtual void recheckAccess() = 0;
};

using PreferencesFileFactory = std::function<std::unique_ptr<PreferencesFileHandle>()>;

}  // namespace kestrow
