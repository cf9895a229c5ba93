#!/usr/bin/env bash
# Builds the macOS installer package on a Mac: a Release build for arm64 and
# x86_64, the Qt libraries deployed into the bundle, everything signed with the
# hardened runtime, optionally notarized and stapled, and a flat package that
# installs the bundle into the suite's support folder and the LaunchAgent into
# /Library/LaunchAgents, starting it for the user logged in now.
#
# Usage: scripts/package-macos.sh            (writes build-package/VarnelStatus-VERSION.pkg)
#
# Environment:
#   VARNEL_SIGN_IDENTITY       codesign identity ("Developer ID Application: ..."); ad-hoc when unset
#   VARNEL_INSTALLER_IDENTITY  productbuild identity ("Developer ID Installer: ..."); unsigned when unset
#   VARNEL_NOTARY_PROFILE      notarytool keychain profile, or else all three of:
#   VARNEL_NOTARY_APPLE_ID, VARNEL_NOTARY_TEAM_ID, VARNEL_NOTARY_PASSWORD (an app-specific password)
#   VARNEL_ARCHS               architectures (default "arm64;x86_64", narrowed to what Qt has)
#   VARNEL_DEPLOYMENT_TARGET   oldest macOS to run on (default 12.0; never below what Qt supports)
#   QT_PREFIX                  Qt's install prefix (default: brew --prefix qt)
set -euo pipefail
cd "$(dirname "$0")/.."

die() { echo "package-macos: $*" >&2; exit 1; }
[ "$(uname -s)" = Darwin ] || die "this builds a macOS package and runs on macOS only"
for tool in cmake ninja codesign pkgbuild productbuild lipo xcrun; do
    command -v "$tool" >/dev/null || die "$tool is missing (Xcode command line tools, brew install cmake ninja)"
done

qt=${QT_PREFIX:-$(brew --prefix qt 2>/dev/null || true)}
[ -x "$qt/bin/macdeployqt" ] || die "no macdeployqt under '$qt' (set QT_PREFIX)"
identity=${VARNEL_SIGN_IDENTITY:--}
out=build-package
rm -rf "$out"
mkdir -p "$out"

# A universal bundle needs a universal Qt; Homebrew's is built for one
# architecture only, so ask for no more than Qt's own libraries hold.
wanted=${VARNEL_ARCHS:-arm64;x86_64}
qt_archs=$(lipo -archs "$qt/lib/QtCore.framework/QtCore")
archs=()
for arch in ${wanted//;/ }; do
    case " $qt_archs " in *" $arch "*) archs+=("$arch") ;; *) echo "package-macos: Qt has no $arch build; leaving it out" >&2 ;; esac
done
[ ${#archs[@]} -gt 0 ] || die "Qt holds none of: $wanted"
arch_list=$(IFS=';'; echo "${archs[*]}")

cmake -S . -B "$out/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARNEL_WERROR=ON \
    -DVARNEL_BUILD_TESTS=OFF -DVARNEL_BUILD_BENCH=OFF -DCMAKE_PREFIX_PATH="$qt" \
    -DCMAKE_OSX_ARCHITECTURES="$arch_list" \
    -DCMAKE_OSX_DEPLOYMENT_TARGET="${VARNEL_DEPLOYMENT_TARGET:-12.0}"
cmake --build "$out/build"
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$out/build/CMakeCache.txt")
app="$out/build/src/tray/VarnelStatus.app"
[ -d "$app" ] || die "the build made no $app"

# varnelctl travels inside the bundle, so one signature and one notarization
# cover both; the package links it into /usr/local/bin.
cp "$out/build/src/cli/varnelctl" "$app/Contents/MacOS/varnelctl"
"$qt/bin/macdeployqt" "$app" -executable="$app/Contents/MacOS/varnelctl" -always-overwrite

# Inside out: every library and plugin before the executables and the bundle.
# Ad-hoc signatures cannot carry a secure time stamp.
sign_flags=(--force --options runtime --sign "$identity")
[ "$identity" = - ] || sign_flags+=(--timestamp)
find "$app/Contents" \( -name '*.dylib' -o -name '*.so' \) -type f -print0 |
    xargs -0 -n 1 codesign "${sign_flags[@]}"
find "$app/Contents/Frameworks" -maxdepth 1 -name '*.framework' -print0 |
    xargs -0 -n 1 codesign "${sign_flags[@]}"
codesign "${sign_flags[@]}" "$app/Contents/MacOS/varnelctl"
codesign "${sign_flags[@]}" "$app"
codesign --verify --strict --deep --verbose=2 "$app"

# The package's payload, laid out as it lands on disk.
root="$out/root"
support="$root/Library/Application Support/Varnel"
mkdir -p "$support" "$root/Library/LaunchAgents"
ditto "$app" "$support/VarnelStatus.app"
cp packaging/macos/com.varnel.tray.plist "$root/Library/LaunchAgents/"
plutil -lint "$root/Library/LaunchAgents/com.varnel.tray.plist" "$support/VarnelStatus.app/Contents/Info.plist"

pkgbuild --root "$root" --identifier com.varnel.tray.pkg --version "$version" \
    --install-location / --scripts packaging/macos/scripts "$out/component.pkg"
product=(--package "$out/component.pkg")
[ -n "${VARNEL_INSTALLER_IDENTITY:-}" ] && product+=(--sign "$VARNEL_INSTALLER_IDENTITY")
package="$out/VarnelStatus-$version.pkg"
productbuild "${product[@]}" "$package"

notary=()
if [ -n "${VARNEL_NOTARY_PROFILE:-}" ]; then
    notary=(--keychain-profile "$VARNEL_NOTARY_PROFILE")
elif [ -n "${VARNEL_NOTARY_APPLE_ID:-}" ]; then
    notary=(--apple-id "$VARNEL_NOTARY_APPLE_ID" --team-id "${VARNEL_NOTARY_TEAM_ID:?}"
        --password "${VARNEL_NOTARY_PASSWORD:?}")
fi
if [ ${#notary[@]} -gt 0 ]; then
    if [ "$identity" = - ] || [ -z "${VARNEL_INSTALLER_IDENTITY:-}" ]; then
        die "notarization needs VARNEL_SIGN_IDENTITY and VARNEL_INSTALLER_IDENTITY"
    fi
    xcrun notarytool submit "$package" "${notary[@]}" --wait
    xcrun stapler staple "$package"
else
    echo "package-macos: no notarization credentials; the package is not notarized" >&2
fi
echo "$package"
