#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "support/clock.h"

namespace kestrow::restic_json {

// restic's JSON documents, read leniently: a member of the wrong type reads as absent.

// The document, or a discarded value when it is not JSON, nests deeper than any restic output
// (a parser that recurses per level must never see a hostile depth) or is longer than `limit`.
nlohmann::json parse(std::string_view text, std::size_t limit);

std::optional<double> number(const nlohmann::json& object, const char* key);
std::optional<std::uint64_t> count(const nlohmann::json& object, const char* key);
std::optional<std::string> text(const nlohmann::json& object, const char* key);
std::optional<WallTime> time(const nlohmann::json& object, const char* key);

}  // namespace kestrow::restic_json
