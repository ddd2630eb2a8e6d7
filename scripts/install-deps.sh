#!/usr/bin/env bash
# Installs Kestrow's build and test packages (Debian 12), skipping apt when all are present.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
mapfile -t packages < <(grep -v -e '^#' -e '^\s*$' "$here/packages.txt")
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -o DPkg::Lock::Timeout=600
$sudo apt-get install -y --no-install-recommends -o DPkg::Lock::Timeout=600 "${missing[@]}"
