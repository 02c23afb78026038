# The Debian package: `cpack -G DEB` in the build folder makes passway-plugin_<version>_<arch>.deb from
# the plugin, tools and host components (never dev), installed under /usr whatever the build's prefix:
#   /usr/lib/mozilla/plugins/libtunvo_plugin.so, /usr/bin/passway-sign, /usr/share/doc/passway-plugin/,
#   /usr/lib/passway/passway-host, /usr/share/passway/extension/ (the extension packages), and the host's
#   manifests: /usr/lib/mozilla/native-messaging-hosts/ and, as conffiles, /etc/chromium/native-messaging-hosts/
#   and /etc/opt/chrome/native-messaging-hosts/
# Binaries are stripped; dpkg-shlibdeps works out the dependencies. A deployment names its own
# maintainer with -DCPACK_DEBIAN_PACKAGE_MAINTAINER="Name <address>".
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PASSWAY_PACKAGE_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR Orvane)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The install runs with the prefix /usr and DESTDIR in the staging folder, so that the host's manifests, which
# name the installed host with the install's prefix, name /usr/lib/passway/passway-host, and the absolute
# folders under /etc land in the staging folder too.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${CPACK_PACKAGING_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Orvane Passway browser plug-in for VPN portals")
# The summary above is the first line; this is the rest (lines of at most 80 characters).
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "The NPAPI plug-in that a VPN portal page embeds, with the MIME type
application/x-orvane-sslvpn. It checks whether the local VPN client service is
installed and current, downloads the client package from the portal, verifies
its RSA signature against the certificate compiled into the plug-in, installs
it, starts and stops the service, and relays messages between the page and the
service.
.
Today's browsers no longer load NPAPI plug-ins: for Chromium, Chrome and
Firefox the package carries passway-host, the native messaging host that runs
the plug-in for the Passway extension, its manifests for those browsers, and
the extension packages in /usr/share/passway/extension.
.
Also contains passway-sign, which signs client packages for the portal.")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_COMPONENTS_ALL plugin tools host)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
if(NOT CPACK_DEBIAN_PACKAGE_MAINTAINER)
  set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Orvane Passway maintainers <passway@orvane.example>")
endif()
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The browsers it serves; either one will do.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "chromium | firefox-esr | firefox")

# The copyright notice, the manual page of passway-sign and lintian's overrides (each with its reason), from
# cmake/debian/.
install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright DESTINATION ${PASSWAY_DOC_INSTALL_DIR} COMPONENT plugin)
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/passway-sign.1 ${CMAKE_BINARY_DIR}/package/passway-sign.1 @ONLY)
execute_process(COMMAND gzip -9nc ${CMAKE_BINARY_DIR}/package/passway-sign.1
                OUTPUT_FILE ${CMAKE_BINARY_DIR}/package/passway-sign.1.gz COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${CMAKE_BINARY_DIR}/package/passway-sign.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
        RENAME ${PASSWAY_PACKAGE_NAME} COMPONENT host)

# The package's changelog (Debian policy wants one in every package), compressed as lintian expects.
# Its date is the configure time, or SOURCE_DATE_EPOCH when set.
string(TIMESTAMP changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/package/changelog CONTENT "\
${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * Built by CPack from the Passway sources, version ${CPACK_PACKAGE_VERSION}.

 -- ${CPACK_DEBIAN_PACKAGE_MAINTAINER}  ${changelog_date}
")
execute_process(COMMAND gzip -9nc ${CMAKE_BINARY_DIR}/package/changelog
                OUTPUT_FILE ${CMAKE_BINARY_DIR}/package/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${CMAKE_BINARY_DIR}/package/changelog.gz DESTINATION ${PASSWAY_DOC_INSTALL_DIR} COMPONENT plugin)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# What the package puts in /etc is configuration (Debian policy): dpkg keeps an administrator's edits and
# removes those files only when the package is purged.
file(WRITE ${CMAKE_BINARY_DIR}/package/conffiles "\
/etc/chromium/native-messaging-hosts/com.orvane.passway.json
/etc/opt/chrome/native-messaging-hosts/com.orvane.passway.json
")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/package/conffiles)

# A build with the published test certificate or keys makes no package: anyone could sign a client package
# that its plug-in installs. The test package, for this project's own checks, comes from its own config,
# package/CPackTestConfig.cmake (`cpack --config`), or from the default one when the build asks for it with
# PASSWAY_TEST_PACKAGE: its version ends in ~testkeys (so its file name says so) and its description begins
# with a warning.
option(PASSWAY_TEST_PACKAGE "Make the Debian package of a build with the TEST-ONLY certificate and keys (named so)" OFF)
set(test_package_settings "
set(CPACK_PACKAGE_VERSION \"${PROJECT_VERSION}~testkeys\")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION \"TEST BUILD, NOT FOR USE: its certificate and keys are the published test
material, so anyone can sign a client package that it installs.
.
\${CPACK_DEBIAN_PACKAGE_DESCRIPTION}\")
unset(CPACK_PRE_BUILD_SCRIPTS)
")
if(PASSWAY_USES_TEST_KEYS)
  set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/RefuseTestKeys.cmake)
  if(PASSWAY_TEST_PACKAGE)
    set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_BINARY_DIR}/package/CPackTestSettings.cmake)
  endif()
endif()
file(WRITE ${CMAKE_BINARY_DIR}/package/CPackTestSettings.cmake "${test_package_settings}")
file(WRITE ${CMAKE_BINARY_DIR}/package/CPackTestConfig.cmake "include(\"${CMAKE_BINARY_DIR}/CPackConfig.cmake\")
include(\"${CMAKE_BINARY_DIR}/package/CPackTestSettings.cmake\")
")

include(CPack)
