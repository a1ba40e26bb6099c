#!/usr/bin/env bash
# Installs the Debian packages listed in scripts/packages-<group>.txt that are
# missing. Usage: scripts/deps.sh build|test|bench ...
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
want=()
for group in "$@"; do
  while read -r pkg _; do
    [[ -z "$pkg" || "$pkg" == \#* ]] && continue
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || want+=("$pkg")
  done < "$here/packages-$group.txt"
done
if ((${#want[@]})); then
  echo "installing: ${want[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${want[@]}"
fi
