# A Debian package of the installed tree, built with `cpack -G DEB` in the
# build folder: jxm_<version>_<arch>.deb, everything under /opt/jxm.
set(CPACK_PACKAGE_NAME jxm)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "JX")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "JX message queuing: queue manager, administration interface, tools and samples")
set(CPACK_PACKAGE_CONTACT "JX developers <jx@localhost>")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEBIAN_PACKAGE_SECTION net)
if(JX_I386)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
else()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()
set(CPACK_DEBIAN_FILE_NAME
    ${CPACK_PACKAGE_NAME}_${CPACK_PACKAGE_VERSION}_${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}.deb)
# The run-time libraries the programs link: the C and C++ runtimes, the
# store's SQLite and the password hashes' crypt.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6, libsqlite3-0, libcrypt1")
include(CPack)
