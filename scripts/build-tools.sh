# Read by ./demo and ./test: what they need from the system.

QUILLON_BUILD_PACKAGES="g++ cmake ninja-build pkg-config libexpat1-dev libcli11-dev nlohmann-json3-dev \
libre2-dev libsoci-dev libboost1.81-dev libgpiod-dev liblxi-dev libmd-dev libmodbus-dev libpq-dev libsqlite3-dev libtirpc-dev libjs-chart.js"
QUILLON_TEST_PACKAGES="clang-format clang-tidy libclang-dev llvm-dev locales libgtest-dev libgmock-dev python3 doxygen mandoc dpkg-dev file \
chromium chromium-driver python3-selenium python3-pymodbus python3-serial-asyncio python3-pyvisa python3-pyvisa-py postgresql-15"

# need_packages PACKAGE... - installs, as root, the packages that are missing; as somebody else, says the command that
# does. Anything but a Debian system is left to whoever runs it.
need_packages() {
  command -v dpkg-query > /dev/null || return 0
  missing=
  for package in "$@"; do
    case $(dpkg-query -W -f='${Status}' "$package" 2> /dev/null) in
      "install ok installed") continue ;;
    esac
    # A tool may also have come from elsewhere.
    case $package in
      g++ | cmake | python3 | sqlite3) if command -v "$package" > /dev/null; then continue; fi ;;
      ninja-build) if command -v ninja > /dev/null; then continue; fi ;;
    esac
    missing="$missing $package"
  done
  [ -n "$missing" ] || return 0
  if [ "$(id -u)" != 0 ]; then
    echo "Packages are missing. This command installs them:" >&2
    echo "    sudo apt-get install --no-install-recommends$missing" >&2
    return 1
  fi
  echo "Installing$missing"
  # The lists of a fresh system are empty, those of an old one may name packages that are gone.
  apt-get update -qq &&
    DEBIAN_FRONTEND=noninteractive apt-get install -qq -y --no-install-recommends $missing > /dev/null
}

# progress - shows how far a build is, from what it says: on a terminal in one line that changes, elsewhere in a line
# now and then.
progress() {
  shown=0
  while IFS= read -r line; do
    case $line in
      "["[0-9]*/[0-9]*"] "*) ;;
      *) continue ;;
    esac
    step=${line%%]*}
    step=${step#?}
    finished=${step%/*}
    all=${step#*/}
    if [ -t 1 ]; then
      printf '\r  %s of %s steps' "$finished" "$all"
    elif [ $((finished * 5 / all)) -gt "$shown" ]; then
      shown=$((finished * 5 / all))
      echo "  $finished of $all steps"
    fi
  done
  if [ -t 1 ]; then printf '\r\033[K'; fi
}

# build PRESET [TARGET...] - configures and builds, and shows how far it is; what the tools say is shown only when
# something is wrong.
build() {
  build_log=$(mktemp "${TMPDIR:-/tmp}/quillon-build-XXXXXX")
  preset=$1
  shift
  {
    if cmake --preset "$preset" &&
      NINJA_STATUS='[%f/%t] ' cmake --build --preset "$preset" -j2 ${1:+--target "$@"}; then
      echo "built" > "$build_log.result"
    fi
  } 2>&1 | tee "$build_log" | progress
  if [ -e "$build_log.result" ]; then
    rm -f "$build_log" "$build_log.result"
    return 0
  fi
  cat "$build_log" >&2
  rm -f "$build_log"
  return 1
}
