#pragma once

#include <QString>
#include <string_view>

#include "support/wording.h"

namespace kestrow {

// A product text as this desktop shows it.
inline QString shown(const Wording& words, std::string_view productText) {
    return QString::fromStdString(words(productText));
}

}  // namespace kestrow
