# cpack -G DEB in the build directory makes a Debian package; -G TGZ works as well.
set(CPACK_PACKAGE_NAME vex)
set(CPACK_PACKAGE_VENDOR "The VEX authors")
set(CPACK_PACKAGE_CONTACT "The VEX authors <vex@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "debugger for parallel jobs: one prompt for all tasks")
set(CPACK_PACKAGE_DESCRIPTION
    "VEX runs one gdb for each task of a parallel program and gives you one
prompt for all of them. What the debuggers answer comes back collapsed by
agreement: each distinct line once, with the tasks that printed it, coloured
by how much it differs.")
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/openfolders.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
# The libraries are found by dpkg-shlibdeps; these are the programs that VEX runs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "gdb, ncurses-bin")
# For gencat, which only translators need.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS libc-dev-bin)
include(CPack)
