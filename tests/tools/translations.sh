#!/bin/sh
# Usage: translations.sh SOURCE_FOLDER
#
# Every message of the tool has its translation in every catalogue, no catalogue has one that the code lost, and a
# translation has as many places for arguments as its message. 77 when gettext is missing.
set -eu
cd "$1"
command -v xgettext >/dev/null && command -v msgcmp >/dev/null || { echo "skipped: gettext is missing"; exit 77; }
messages=$(mktemp)
trap 'rm -f "$messages"' EXIT
find tools/zt tools/inspect -name '*.cpp' -o -name '*.h' | LC_ALL=C sort |
  xgettext --files-from=- --language=C++ --from-code=UTF-8 --keyword --keyword=tr --keyword=trn:1,2 --output="$messages"
sed -i s/charset=CHARSET/charset=UTF-8/ "$messages"

export LC_ALL=C.UTF-8
failed=0
for catalogue in tools/zt/po/*.po; do
  said=$(msgcmp "$catalogue" "$messages" 2>&1 && msgfmt --check --output-file=/dev/null "$catalogue" 2>&1) || failed=1
  # shellcheck disable=SC2016  # for the inner shell
  places=$(msgexec --input="$catalogue" sh -c '
    of() { grep -o "{[0-9]*}" | wc -l; }
    [ -z "$MSGEXEC_MSGID" ] || [ "$(of)" = "$(printf %s "$MSGEXEC_MSGID" | of)" ] || echo "places differ: $MSGEXEC_MSGID"')
  [ -z "$said$places" ] || { printf '%s:\n%s\n%s\n' "$catalogue" "$said" "$places"; failed=1; }
done
exit $failed
