# `cpack -G DEB` in a build folder makes vantelor_<version>_<arch>.deb from what `cmake --install`
# places. Library dependencies are read from the binaries by dpkg-shlibdeps; the Qt plugins that
# are loaded at run time, and libheif, opened on first use, appear in no binary's needs and are
# named by hand.
set(CPACK_PACKAGE_NAME vantelor)
set(CPACK_PACKAGE_VENDOR Vantelor)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "photo-culling browser that never writes raw files")
set(CPACK_PACKAGE_DESCRIPTION "Vantelor opens a folder of camera files (Nikon NEF first of all, and JPEG, HEIC,
TIFF, PNG, DNG, ARW, CR2, CR3), shows them in a filmstrip, a contact sheet and a
large preview with focus peaking, rates them with stars and colour labels kept in
XMP sidecars, and copies or moves the keepers with SHA-256 verification.
The interface is in Spanish. Includes the vantelor-cli command-line companion.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Vantelor <vantelor@vantelor.invalid>")
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, qt6-image-formats-plugins, libheif1 (>= 1.15)")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "desktop-file-utils, hicolor-icon-theme")
include(CPack)
