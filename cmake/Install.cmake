# What `cmake --install` puts where.
#   the plug-in          PASSWAY_PLUGIN_INSTALL_DIR (default <prefix>/lib/mozilla/plugins; for one user,
#                        -DPASSWAY_PLUGIN_INSTALL_DIR=$HOME/.mozilla/plugins)
#   passway-sign         <prefix>/bin
#   static libraries     <prefix>/lib
#   headers              <prefix>/include/passway/{utils,crypto,clientdata}
include(GNUInstallDirs)
set(PASSWAY_PLUGIN_INSTALL_DIR "${CMAKE_INSTALL_LIBDIR}/mozilla/plugins" CACHE PATH
    "Where the plug-in is installed (relative paths are under the install prefix)")

install(TARGETS tunvo_plugin LIBRARY DESTINATION ${PASSWAY_PLUGIN_INSTALL_DIR})
install(TARGETS passway-sign RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS orvane_utils orvane_crypto orvane_clientdata ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/utils/inc/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/passway/utils)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/crypto/inc/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/passway/crypto)
install(FILES ${PROJECT_SOURCE_DIR}/clientdata/ClientData ${PROJECT_SOURCE_DIR}/clientdata/DeviceInfo
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/passway/clientdata)
