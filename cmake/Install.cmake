# What `cmake --install` puts where, by component.
#   plugin       (default)  the plug-in in <prefix>/lib/mozilla/plugins (or PASSWAY_PLUGIN_INSTALL_DIR);
#                           the guides in <prefix>/share/doc/passway-plugin
#   tools        (default)  passway-sign in <prefix>/bin
#   host         (default)  passway-host in <prefix>/lib/passway; its manifests where each browser looks for
#                           everyone: /etc/chromium/native-messaging-hosts, /etc/opt/chrome/native-messaging-hosts,
#                           /usr/lib/mozilla/native-messaging-hosts (absolute: DESTDIR applies, the prefix not);
#                           the extension packages in <prefix>/share/passway/extension; the unpacked
#                           extension in /usr/share/chromium/extensions/passway and Firefox's system folder
#                           /usr/share/mozilla/extensions/{ec8030f7-...}/passway@orvane.com (absolute)
#   user-plugin  (on request) the plug-in in ~/.mozilla/plugins of whoever installs, decided at install time
#   user-host    (on request) passway-host in ~/.local/lib/passway and its manifests in the per-user folders
#                           of Chromium, Chrome and Firefox, for whoever installs
#   dev          (on request) the static libraries in <prefix>/<libdir>, their headers side by side in
#                           <prefix>/include/passway, the CMake package Passway and passway.pc
# Nothing here depends on the prefix given at configure time: `cmake --install build --prefix P` works
# for any P, and no cached value sends a later install somewhere else.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(PASSWAY_PLUGIN_INSTALL_DIR "" CACHE PATH
    "Where the plug-in is installed; empty: lib/mozilla/plugins under the install prefix")
# Build folders configured before kept GNUInstallDirs' libdir here (lib/x86_64-linux-gnu when the prefix
# was /usr), where browsers do not look: that old default gives way to the new one.
if(PASSWAY_PLUGIN_INSTALL_DIR STREQUAL "${CMAKE_INSTALL_LIBDIR}/mozilla/plugins")
  set_property(CACHE PASSWAY_PLUGIN_INSTALL_DIR PROPERTY VALUE "")
endif()
set(plugin_dir "${PASSWAY_PLUGIN_INSTALL_DIR}")
if(plugin_dir STREQUAL "")
  set(plugin_dir lib/mozilla/plugins)  # literally lib: browsers search no multiarch folder
endif()

# ---- plugin and tools ---------------------------------------------------------
install(TARGETS tunvo_plugin LIBRARY DESTINATION ${plugin_dir} COMPONENT plugin)
# The guides; the folder is read at install time, so a guide added to docs/ needs no new rule.
set(PASSWAY_PACKAGE_NAME passway-plugin)  # the Debian package's, which names its documentation folder
set(PASSWAY_DOC_INSTALL_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/${PASSWAY_PACKAGE_NAME})
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${PASSWAY_DOC_INSTALL_DIR} COMPONENT plugin)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${PASSWAY_DOC_INSTALL_DIR} COMPONENT plugin
        FILES_MATCHING PATTERN "*.md")
install(TARGETS passway-sign RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

# ---- user-plugin ----------------------------------------------------------------
# HOME is read when the install runs (file(INSTALL) adds DESTDIR to the absolute folder).
install(CODE "file(INSTALL DESTINATION \"\$ENV{HOME}/.mozilla/plugins\" TYPE SHARED_LIBRARY
                   FILES \"$<TARGET_FILE:tunvo_plugin>\")"
        COMPONENT user-plugin EXCLUDE_FROM_ALL)

# ---- host and user-host -----------------------------------------------------------
# passway_host_manifest(COMPONENT BROWSER FOLDER HOST [EXCLUDE_FROM_ALL]): an install step that writes the
# browser's host manifest (extension/host-manifest/BROWSER/) into FOLDER with "path" set to HOST (and the
# Chromium extension's ID, which the extension key gives, where the manifest names it). Both are
# read when the install runs, so they may name \${CMAKE_INSTALL_PREFIX} (the install's prefix) or
# \$ENV{HOME}; file(INSTALL) adds DESTDIR to FOLDER, never to the path written into the manifest.
function(passway_host_manifest component browser folder host)
  set(template ${PROJECT_SOURCE_DIR}/extension/host-manifest/${browser}/com.orvane.passway.json.in)
  set(staging ${CMAKE_BINARY_DIR}/package/host-manifest)
  install(CODE "
    file(READ \"${template}\" manifest)
    file(STRINGS \"${CMAKE_BINARY_DIR}/extension/chromium-id.txt\" extension_id)
    string(REPLACE \"@PASSWAY_HOST_PATH@\" \"${host}\" manifest \"\${manifest}\")
    string(REPLACE \"@PASSWAY_EXTENSION_ID@\" \"\${extension_id}\" manifest \"\${manifest}\")
    string(MD5 staged \"${folder} ${host} \$ENV{DESTDIR}\")  # installs side by side do not share a file
    file(WRITE \"${staging}/\${staged}/com.orvane.passway.json\" \"\${manifest}\")
    file(INSTALL DESTINATION \"${folder}\" TYPE FILE FILES \"${staging}/\${staged}/com.orvane.passway.json\")
    file(REMOVE_RECURSE \"${staging}/\${staged}\")"
    COMPONENT ${component} ${ARGN})
endfunction()

set(PASSWAY_HOST_INSTALL_DIR lib/passway)  # literally lib, like the plug-in's folder
install(TARGETS passway-host RUNTIME DESTINATION ${PASSWAY_HOST_INSTALL_DIR} COMPONENT host)
set(installed_host "\${CMAKE_INSTALL_PREFIX}/${PASSWAY_HOST_INSTALL_DIR}/passway-host")
passway_host_manifest(host chromium /etc/chromium/native-messaging-hosts "${installed_host}")
passway_host_manifest(host chromium /etc/opt/chrome/native-messaging-hosts "${installed_host}")
passway_host_manifest(host firefox /usr/lib/mozilla/native-messaging-hosts "${installed_host}")
# The extension packages, for whoever hands them out.
install(FILES ${CMAKE_BINARY_DIR}/extension/passway-chromium.zip ${CMAKE_BINARY_DIR}/extension/passway-chromium.crx
              ${CMAKE_BINARY_DIR}/extension/passway-firefox.xpi
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/passway/extension COMPONENT host)
# The unpacked extension where each browser loads it for everyone, with no click: Debian's chromium launcher
# loads every folder of /usr/share/chromium/extensions (/etc/chromium.d/extensions), Firefox the add-ons of
# its system folder, unsigned, each in a folder named by its ID. Fixed folders, whatever the prefix (DESTDIR
# applies), like the manifests.
file(READ ${PROJECT_SOURCE_DIR}/extension/manifest.base.json extension_manifest)
string(JSON firefox_id GET "${extension_manifest}" browsers firefox browser_specific_settings gecko id)
set(PASSWAY_CHROMIUM_EXTENSION_DIR /usr/share/chromium/extensions/passway)
set(PASSWAY_FIREFOX_EXTENSION_DIR "/usr/share/mozilla/extensions/{ec8030f7-c20a-464f-9b0e-13a3a9e97384}/${firefox_id}")
install(DIRECTORY ${CMAKE_BINARY_DIR}/extension/chromium/ DESTINATION ${PASSWAY_CHROMIUM_EXTENSION_DIR} COMPONENT host)
install(DIRECTORY ${CMAKE_BINARY_DIR}/extension/firefox/ DESTINATION ${PASSWAY_FIREFOX_EXTENSION_DIR} COMPONENT host)

set(user_host "\$ENV{HOME}/.local/${PASSWAY_HOST_INSTALL_DIR}/passway-host")
install(CODE "file(INSTALL DESTINATION \"\$ENV{HOME}/.local/${PASSWAY_HOST_INSTALL_DIR}\" TYPE EXECUTABLE
                   FILES \"$<TARGET_FILE:passway-host>\")"
        COMPONENT user-host EXCLUDE_FROM_ALL)
passway_host_manifest(user-host chromium "\$ENV{HOME}/.config/chromium/NativeMessagingHosts" "${user_host}"
                      EXCLUDE_FROM_ALL)
passway_host_manifest(user-host chromium "\$ENV{HOME}/.config/google-chrome/NativeMessagingHosts" "${user_host}"
                      EXCLUDE_FROM_ALL)
passway_host_manifest(user-host firefox "\$ENV{HOME}/.mozilla/native-messaging-hosts" "${user_host}"
                      EXCLUDE_FROM_ALL)

# ---- dev ------------------------------------------------------------------------
# The headers include one another by bare name ("String", "Hash", ...), and no two folders share a name:
# all of them go into one folder, so that a single -I<prefix>/include/passway serves.
set(PASSWAY_HEADER_INSTALL_DIR ${CMAKE_INSTALL_INCLUDEDIR}/passway)
set(dev_libraries orvane_utils orvane_crypto orvane_clientdata)
# In the build the libraries use their source folders; installed, the one header folder.
foreach(library IN LISTS dev_libraries)
  get_target_property(source_includes ${library} INTERFACE_INCLUDE_DIRECTORIES)
  set_property(TARGET ${library} PROPERTY INTERFACE_INCLUDE_DIRECTORIES "$<BUILD_INTERFACE:${source_includes}>")
endforeach()
# passway_config (the generated header's folder, build tree only) comes along empty: the libraries
# name it, and an exported target may name only exported ones.
install(TARGETS ${dev_libraries} EXPORT PasswayTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev EXCLUDE_FROM_ALL
        INCLUDES DESTINATION ${PASSWAY_HEADER_INSTALL_DIR})
install(TARGETS passway_config EXPORT PasswayTargets)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/utils/inc/ ${PROJECT_SOURCE_DIR}/crypto/inc/
        DESTINATION ${PASSWAY_HEADER_INSTALL_DIR} COMPONENT dev EXCLUDE_FROM_ALL)
install(FILES ${PROJECT_SOURCE_DIR}/clientdata/ClientData ${PROJECT_SOURCE_DIR}/clientdata/DeviceInfo
        DESTINATION ${PASSWAY_HEADER_INSTALL_DIR} COMPONENT dev EXCLUDE_FROM_ALL)

# find_package(Passway): Passway::orvane_utils, Passway::orvane_crypto, Passway::orvane_clientdata.
set(PASSWAY_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Passway)
install(EXPORT PasswayTargets NAMESPACE Passway:: DESTINATION ${PASSWAY_CMAKE_INSTALL_DIR}
        COMPONENT dev EXCLUDE_FROM_ALL)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/PasswayPackageConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/package/PasswayConfig.cmake
                              INSTALL_DESTINATION ${PASSWAY_CMAKE_INSTALL_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/PasswayConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/PasswayConfig.cmake ${CMAKE_BINARY_DIR}/package/PasswayConfigVersion.cmake
        DESTINATION ${PASSWAY_CMAKE_INSTALL_DIR} COMPONENT dev EXCLUDE_FROM_ALL)

# pkg-config: passway.pc finds the prefix from its own place, like the CMake package.
set(PASSWAY_PKGCONFIG_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH PASSWAY_PC_TO_PREFIX /${PASSWAY_PKGCONFIG_INSTALL_DIR} /)
string(REGEX REPLACE "/$" "" PASSWAY_PC_TO_PREFIX "${PASSWAY_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/passway.pc.in ${CMAKE_BINARY_DIR}/package/passway.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/package/passway.pc DESTINATION ${PASSWAY_PKGCONFIG_INSTALL_DIR}
        COMPONENT dev EXCLUDE_FROM_ALL)
