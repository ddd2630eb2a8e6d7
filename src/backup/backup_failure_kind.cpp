#include "backup/backup_failure_kind.h"

#include <array>
#include <utility>

namespace kestrow {
namespace {

constexpr std::array<std::pair<BackupFailureKind, std::string_view>, 12> kNames{{
    {BackupFailureKind::diskNotConnected, "diskNotConnected"},
    {BackupFailureKind::repositoryNotFound, "repositoryNotFound"},
    {BackupFailureKind::wrongPassword, "wrongPassword"},
    {BackupFailureKind::missingPassword, "missingPassword"},
    {BackupFailureKind::keyringLocked, "keyringLocked"},
    {BackupFailureKind::keyringUnavailable, "keyringUnavailable"},
    {BackupFailureKind::repositoryLocked, "repositoryLocked"},
    {BackupFailureKind::networkUnreachable, "networkUnreachable"},
    {BackupFailureKind::outOfSpace, "outOfSpace"},
    {BackupFailureKind::interrupted, "interrupted"},
    {BackupFailureKind::toolMissing, "toolMissing"},
    {BackupFailureKind::other, "other"},
}};

}  // namespace

std::string_view backupFailureKindName(BackupFailureKind kind) {
    for (const auto& [known, name] : kNames) {
        if (known == kind) return name;
    }
    return "other";
}

std::optional<BackupFailureKind> backupFailureKindNamed(std::string_view name) {
    for (const auto& [kind, known] : kNames) {
        if (known == name) return kind;
    }
    return std::nullopt;
}

}  // namespace kestrow
