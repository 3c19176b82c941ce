# One Debian package with the runner, the plug-in, the platform library, the migrate service,
# the host tools and their manual pages: cmake --build build --target package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME account-manager-restore)
set(CPACK_PACKAGE_VENDOR "Zarvo")
set(CPACK_PACKAGE_CONTACT "Zarvo restore team <restore@zarvo.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Account restore plug-in with a runner that restores Android data snapshots on a Linux host")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
