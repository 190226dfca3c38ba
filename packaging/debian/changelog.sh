#!/usr/bin/env bash
# Turns CHANGELOG.md, on standard input, into the changelog of a Debian package. What is not released
# is left out; fails if the newest version is not the one given.
#
#   changelog.sh SOURCE-PACKAGE VERSION CONTACT
set -euo pipefail

package=$1
version=$2
contact=$3
released=

end_version() {
  [ -z "$released" ] || printf '\n -- %s  %s\n\n' "$contact" "$(date --utc -R --date="$released")"
}

newest=
while IFS= read -r line; do
  if [[ $line =~ ^'## ['([0-9.]+)'] - '([0-9-]+)$ ]]; then
    end_version
    released=${BASH_REMATCH[2]}
    newest=${newest:-${BASH_REMATCH[1]}}
    printf '%s (%s) unstable; urgency=medium\n\n' "$package" "${BASH_REMATCH[1]}"
  elif [[ $line = '## '* && $line != '## [Unreleased]' ]]; then
    echo "CHANGELOG.md: no heading of a version: $line" >&2
    exit 1
  elif [ -n "$released" ]; then
    case $line in
      '- '*) printf '  * %s\n' "${line#- }" ;;
      '  '*) printf '  %s\n' "$line" ;;
    esac
  fi
done
end_version
if [ "$newest" != "$version" ]; then
  echo "CHANGELOG.md: the newest version is $newest, not $version" >&2
  exit 1
fi
