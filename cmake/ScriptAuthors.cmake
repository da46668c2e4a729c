# What script authors get from the build and from `make install`: the Lua language server
# definitions and the Markdown reference generated from the function catalogue, and install
# rules with a pkg-config file and a CMake package configuration.
include(CMakePackageConfigHelpers)

# ---- Generated from the catalogue ------------------------------------------------------------
find_program(QAV_GEN_LUA NAMES lua${QAV_LUA_VERSION} lua5.4 lua5.3 lua5.2 REQUIRED)
set(QAV_CATALOGUE ${CMAKE_SOURCE_DIR}/docs/catalogue/functions.lua)
set(QAV_SHARE_DIR ${CMAKE_BINARY_DIR}/share/qavluacommon)
set(QAV_META_FILE ${QAV_SHARE_DIR}/meta/libqavluacommon.lua)
set(QAV_REFERENCE_FILE ${QAV_SHARE_DIR}/reference.md)
add_custom_command(
  OUTPUT ${QAV_META_FILE} ${QAV_REFERENCE_FILE} ${QAV_SHARE_DIR}/meta/zakhost.lua
  COMMAND ${CMAKE_COMMAND} -E make_directory ${QAV_SHARE_DIR}/meta
  COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_SOURCE_DIR}/docs/catalogue/zakhost.lua ${QAV_SHARE_DIR}/meta/zakhost.lua
  COMMAND ${QAV_GEN_LUA} ${CMAKE_SOURCE_DIR}/tools/gen/generate.lua ${QAV_CATALOGUE} ${QAV_META_FILE}
          ${QAV_REFERENCE_FILE}
  DEPENDS ${QAV_CATALOGUE} ${CMAKE_SOURCE_DIR}/docs/catalogue/zakhost.lua ${CMAKE_SOURCE_DIR}/tools/gen/generate.lua ${CMAKE_SOURCE_DIR}/tools/gen/catalogue.lua
  COMMENT "Generating the Lua language server definitions and the API reference"
  VERBATIM)
add_custom_target(script_author_docs ALL DEPENDS ${QAV_META_FILE} ${QAV_REFERENCE_FILE})

# ---- Install ---------------------------------------------------------------------------------
# Libraries and modules sit together in <prefix>/lib, where qavlua looks for them (next to its
# own bin directory); every installed object finds its neighbours through $ORIGIN.
set(QAV_INSTALL_LIBDIR lib)
set(QAV_INSTALL_INCLUDEDIR include/qavluacommon)
set(QAV_INSTALL_DATADIR share/qavluacommon)
set(QAV_INSTALL_CMAKEDIR lib/cmake/qavluacommon)
# The modules are also reached through links in lib/lua/<version> (below), where $ORIGIN is that
# directory: hence the second entry.
set_target_properties(qavluacommon zakhost zakhost_module PROPERTIES INSTALL_RPATH "$ORIGIN;$ORIGIN/../..")
set_target_properties(qavlua-engine PROPERTIES INSTALL_RPATH "$ORIGIN/../${QAV_INSTALL_LIBDIR}")

install(TARGETS qavluacommon zakhost LIBRARY DESTINATION ${QAV_INSTALL_LIBDIR})
install(TARGETS zakhost_module LIBRARY DESTINATION ${QAV_INSTALL_LIBDIR})
install(TARGETS qavlua qavlua-engine qavpkg RUNTIME DESTINATION bin)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/platform/include/ DESTINATION ${QAV_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(FILES ${QAV_META_FILE} ${QAV_SHARE_DIR}/meta/zakhost.lua DESTINATION ${QAV_INSTALL_DATADIR}/meta)
install(FILES ${QAV_REFERENCE_FILE} ${QAV_CATALOGUE} ${QAV_SHARE_DIR}/luacheckrc DESTINATION ${QAV_INSTALL_DATADIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/examples/ DESTINATION ${QAV_INSTALL_DATADIR}/examples
        PATTERN ".luarc.json" EXCLUDE)

configure_file(${CMAKE_SOURCE_DIR}/cmake/qavluacommon.pc.in ${CMAKE_BINARY_DIR}/qavluacommon.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/qavluacommon.pc DESTINATION ${QAV_INSTALL_LIBDIR}/pkgconfig)

configure_file(${CMAKE_SOURCE_DIR}/cmake/qavluacommonConfig.cmake.in
               ${CMAKE_BINARY_DIR}/qavluacommonConfig.cmake @ONLY)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/qavluacommonConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/qavluacommonConfig.cmake ${CMAKE_BINARY_DIR}/qavluacommonConfigVersion.cmake
        DESTINATION ${QAV_INSTALL_CMAKEDIR})

# A stock interpreter looks for C modules in <prefix>/lib/lua/<version>: links there let
# `require "libqavluacommon"` and `require "zakhost"` work without LUA_CPATH for the usual prefixes.
set(QAV_LUA_MODULE_LINKS ${CMAKE_BINARY_DIR}/lua-module-links)
file(MAKE_DIRECTORY ${QAV_LUA_MODULE_LINKS})
foreach(_qav_module libqavluacommon zakhost)
  file(CREATE_LINK ../../${_qav_module}.so ${QAV_LUA_MODULE_LINKS}/${_qav_module}.so SYMBOLIC)
  install(FILES ${QAV_LUA_MODULE_LINKS}/${_qav_module}.so DESTINATION ${QAV_INSTALL_LIBDIR}/lua/${QAV_LUA_VERSION})
endforeach()
