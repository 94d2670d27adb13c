# shellcheck shell=bash
# Shared by the scripts of this folder; sourced, not run.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '\n== %s\n' "$*"; }
die() { printf 'error: %s\n' "$*" >&2; exit 1; }

# The packages of the named groups in packages.txt.
packages_of() {
  local group wanted=" $* " line
  group=""
  while IFS= read -r line; do
    line=${line%%#*}
    line=${line//[[:space:]]/}
    case "$line" in
      '') ;;
      \[*\]) group=${line:1:-1} ;;
      *) if [[ $wanted == *" $group "* ]]; then printf '%s\n' "$line"; fi ;;
    esac
  done < "$root/scripts/packages.txt"
}

# Installs what is missing of the named groups; asks nothing and does nothing when all is there.
need_packages() {
  local missing=() package
  while IFS= read -r package; do
    if [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
      missing+=("$package")
    fi
  done < <(packages_of "$@")
  if ((${#missing[@]} == 0)); then return 0; fi

  local as_root=()
  if ((EUID != 0)); then
    command -v sudo >/dev/null || die "these packages are missing and there is no sudo to install them: ${missing[*]}"
    as_root=(sudo)
  fi
  say "Installing ${missing[*]}"
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
}

# Configures (once) and builds a preset; further arguments name targets.
build_preset() {
  local preset=$1
  shift
  local targets=()
  if (($# > 0)); then targets=(--target "$@"); fi
  cd "$root" || exit
  if [[ ! -f build/$preset/build.ninja ]]; then cmake --preset "$preset" >/dev/null; fi
  cmake --build --preset "$preset" "${targets[@]}"
}

# Builds the command-line program alone, which needs the packages of the group "build" only.
build_tool() {
  build_preset release orvacam_tool
  # shellcheck disable=SC2034  # for the sourcing script
  orvacam=$root/build/release/tools/orvacam/orvacam
}

# The program with several cameras under ThreadSanitizer; the library and this program are all that is built for it.
run_threads_test() {
  build_preset tsan test_threads
  (cd "$root/build/tsan/tests/threads/run" && TSAN_OPTIONS=halt_on_error=1 ../test_threads --gtest_brief=1)
}

# The Python package's own tests with a module under AddressSanitizer and UndefinedBehaviorSanitizer. What they compare
# with comes from the dev build. The interpreter itself leaks by design, and its memory grows by what is quarantined. By
# gcc, whose runtime is a library that the interpreter can be given. Limits of memory leave it no room for itself.
run_python_under_asan() {
  build_preset dev orvacam_python orvacam_tool fuzz_seeds
  "$root/build/dev/fuzz/fuzz_seeds" "$root/build/dev/fuzz/seeds" >/dev/null
  local folder=$root/build/asan-python tests=$root/python/tests
  if [[ ! -f $folder/build.ninja ]]; then
    cmake --preset asan -B "$folder" -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DORVACAM_BUILD_PYTHON=ON \
      -DORVACAM_BUILD_TESTS=OFF -DORVACAM_BUILD_BENCH=OFF -DORVACAM_BUILD_EXAMPLES=OFF >/dev/null
  fi
  cmake --build "$folder" --target orvacam_python
  (cd "$folder" && LD_PRELOAD="$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libstdc++.so.6)" \
    ASAN_OPTIONS=detect_leaks=0 ORVACAM_BUILD_DIR=$root/build/dev ORVACAM_FUZZ_FINDINGS=$root/fuzz/findings \
    PYTHONPATH=$folder/python PYTHONDONTWRITEBYTECODE=1 nice -n 19 /usr/bin/python3 -P -m pytest \
    -c "$root/python/pyproject.toml" --rootdir="$tests" \
    -k "not decodes_leave_nothing and not let_it_go and not there_is_no_memory" \
    "$tests"/test_{frames,headers,decoding,stacks,parts,corpus,simulate}.py)
}

# Where reads of memory that nobody wrote could hide; the others have their memory from these.
# shellcheck disable=SC2034  # for the sourcing script
valgrind_tests=(test_metadata test_support test_gain test_stack test_imagefiles test_frames test_facade test_merge)

# A unit test of the debug build under valgrind, which hides the vector extensions that it does not know. Frame objects
# of the tests are megabytes on the stack, which it would take for another stack.
run_under_valgrind() {
  local test=$1 folder=$root/build/debug/tests/${1#test_}
  (cd "$folder/run" && nice -n 19 valgrind -q --error-exitcode=99 --leak-check=full \
    --errors-for-leak-kinds=definite,indirect --child-silent-after-fork=yes \
    --max-stackframe=16000000 --main-stacksize=64000000 \
    --suppressions="$root/scripts/valgrind.supp" "../$test" --gtest_brief=1)
}
