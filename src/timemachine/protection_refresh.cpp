#include "timemachine/protection_refresh.h"

namespace kestrow {

void ProtectionRefresh::start() {
    if (next_) return;
    tick();
}

void ProtectionRefresh::stop() {
    if (next_) main_.cancel(*next_);
    next_.reset();
}

void ProtectionRefresh::tick() {
    model_.refresh();
    next_ = main_.postAfter(kIntervalSeconds, [this] { tick(); });
}

}  // namespace kestrow
