# `cpack` in a build folder makes a Debian package of what is installed below /usr; scripts/package does it from the release
# preset.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pexa)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The maintainers of the forwarding agent <maintainers@sampledflowtracker.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "forwarding agent with sampled flow tracking, and its flow tracker")
set(CPACK_PACKAGE_DESCRIPTION
"A forwarding agent that samples packets, exports the samples as sFlow, and
counts flows that were admitted into the hardware flow table packet by packet;
a daemon that learns flows from sFlow datagrams, has them offloaded and exports
them as IPFIX; and an operator's command line that looks into both.")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
# Staged below DESTDIR with the real prefix, so that /etc is /etc.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser, init-system-helpers (>= 1.54~)")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, nfdump, prometheus")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(maintainer ${CMAKE_SOURCE_DIR}/packaging/debian)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${maintainer}/postinst ${maintainer}/prerm ${maintainer}/postrm ${maintainer}/conffiles)
# What was stripped, beside it: pexa-dbgsym.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
include(CPack)
