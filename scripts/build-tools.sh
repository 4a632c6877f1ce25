# Read by ./demo and ./test: what they need from the system.

QUILLON_BUILD_PACKAGES="g++ cmake ninja-build libexpat1-dev libcli11-dev nlohmann-json3-dev"
QUILLON_TEST_PACKAGES="locales libgtest-dev libgmock-dev python3 pkg-config doxygen mandoc dpkg-dev file"

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
      g++ | cmake | python3) if command -v "$package" > /dev/null; then continue; fi ;;
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

# build PRESET - configures and builds; what the tools say is shown only when something is wrong.
build() {
  build_log=$(mktemp "${TMPDIR:-/tmp}/quillon-build-XXXXXX")
  if cmake --preset "$1" > "$build_log" 2>&1 && cmake --build --preset "$1" -j2 >> "$build_log" 2>&1; then
    rm -f "$build_log"
    return 0
  fi
  cat "$build_log" >&2
  rm -f "$build_log"
  return 1
}
