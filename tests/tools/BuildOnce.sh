#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# ./zeph builds once, whoever calls, and believes no build that was killed: tried on a small project of the same shape.
# Usage: BuildOnce.sh CHECKOUT
set -euo pipefail
script=$1/zeph
house=$(mktemp -d)
trap 'rm -rf "$house"' EXIT
cd "$house"
fail() { echo "FAILED: $*" >&2; exit 1; }

mkdir -p scripts bin tools/zeph DetectionEngine cmake documents authoring judging package
cp "$script" zeph
printf '#!/bin/sh\n' >scripts/install-packages
chmod +x scripts/install-packages
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(Small C)
add_subdirectory(tools/zeph)
END
cat >tools/zeph/CMakeLists.txt <<'END'
add_library(word STATIC ${PROJECT_SOURCE_DIR}/DetectionEngine/word.c)
add_executable(zeph main.c)
target_link_libraries(zeph PRIVATE word)
add_custom_target(default_package DEPENDS zeph)
END
cat >tools/zeph/main.c <<'END'
const char *word(void);
int puts(const char *);
int main(void) { return puts(word()) < 0; }
END
say() { printf 'const char *word(void) { return "%s"; }\n' "$1" >DetectionEngine/word.c; }
# What calls the build tool leaves a line; the compiler takes its time.
cat >bin/cmake <<END
#!/bin/sh
echo "\$@" >>"$house/calls"
exec $(command -v cmake) "\$@"
END
cat >bin/slow-cc <<'END'
#!/bin/sh
sleep "${SLOW:-0}"
exec cc "$@"
END
chmod +x bin/*
export PATH="$house/bin:$PATH" CC="$house/bin/slow-cc"
builds() { grep -c -- --build calls || true; }

say one
[ "$(./zeph 2>/dev/null)" = one ] || fail "the first call builds"
: >calls
[ "$(./zeph)" = one ] && [ ! -s calls ] || fail "a finished build starts no build tool"

# Ten at once after a change: one builds, each has what is there now.
say two
for i in $(seq 10); do SLOW=0.2 ./zeph >"out.$i" 2>/dev/null & done
wait
for i in $(seq 10); do [ "$(cat "out.$i")" = two ] || fail "call $i of ten gave '$(cat "out.$i")'"; done
[ "$(builds)" = 1 ] || fail "ten calls built $(builds) times"

# Killed in the middle, the builder alone or all that it started: what it leaves isn't believed.
for round in 1 2; do
  for whom in builder all; do
    say "three$round$whom"
    SLOW=1 setsid ./zeph >/dev/null 2>&1 &
    sleep "0.$((round * 4))"
    if [ "$whom" = all ]; then kill -9 -- -$! 2>/dev/null || true; else kill -9 $! 2>/dev/null || true; fi
    wait 2>/dev/null || true
    if [ "$whom" = all ]; then
      find build/release -name '*.a' -exec truncate -s 0 {} + 2>/dev/null || true
      find build/release -name '*.o' -path '*word*' -exec truncate -s 0 {} + 2>/dev/null || true
    fi
    [ "$(./zeph 2>/dev/null)" = "three$round$whom" ] || fail "after a kill of $whom, round $round"
  done
done

# What is put in the place of a source counts whatever time it bears; so does one that goes away.
say old
cp -p DetectionEngine/word.c kept
sleep 0.01
say new
[ "$(./zeph 2>/dev/null)" = new ] || fail "a change"
cp -p kept DetectionEngine/word.c
[ "$(./zeph 2>/dev/null)" = old ] || fail "an older file in the place of a newer one"
touch package/list
: >calls
./zeph >/dev/null 2>&1
[ "$(builds)" = 1 ] || fail "a new file"
rm package/list
./zeph >/dev/null 2>&1
[ "$(builds)" = 2 ] || fail "a file that is gone"

# A build that fails says so and leaves nothing to believe.
echo 'no c' >DetectionEngine/word.c
if ./zeph >/dev/null 2>err; then fail "a build that fails"; fi
grep -q 'word.c' err || fail "a build that fails says why"
say end
[ "$(./zeph 2>/dev/null)" = end ] || fail "a build behind one that failed"
echo ok
