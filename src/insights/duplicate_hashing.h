#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "insights/duplicate_group.h"

namespace kestrow {

// Lower-case hex SHA-256 of a file's first `limit` bytes (all of it when absent), read in chunks
// of at most `buffer.size()` bytes. Only a regular file is read, and when `expected` is given only
// the file the scan saw (same device and inode): a FIFO or device put in its place is never
// waited on. Absent when the file cannot be read, is not that file, or the stop is requested
// (looked at before each chunk).
std::optional<std::string> hashDuplicateCandidate(const std::string& path,
                                                  const DuplicateFile* expected,
                                                  std::optional<std::int64_t> limit,
                                                  std::span<std::byte> buffer,
                                                  std::stop_token stop = {});

// Splits every set of files by their digests (of the first `limit` bytes, or whole), hashing on
// `threads` threads (0: one per core), biggest files first. Unreadable files and sets left with
// one file fall out; once the stop is requested nothing more is read and the answer is empty.
std::vector<std::vector<DuplicateFile>> splitByDigest(
    const std::vector<std::vector<DuplicateFile>>& sets, std::optional<std::int64_t> limit,
    unsigned threads, std::stop_token stop);

}  // namespace kestrow
