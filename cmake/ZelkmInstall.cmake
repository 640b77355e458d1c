# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

# Puts down the library, the headers (the host's platform headers in a folder of their own), the
# software keymaster, the keymaster's check, the tool with its page and completion, the documentation
# with the examples, a CMake package and a pkg-config file. Each has a component, which becomes a
# Debian package.

include(CMakePackageConfigHelpers)

install(TARGETS zelkeymaster EXPORT zelkeymaster-targets COMPONENT library)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
install(TARGETS zelkeymaster_platform zelkeymaster_libcrypto soft_keymaster keymaster_check
    EXPORT zelkeymaster-targets)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY soft_keymaster/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY keymaster_check/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY platform/host/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zelkeymaster/platform)
install(CODE "
    set(SOURCE [[${PROJECT_SOURCE_DIR}]])
    set(SCRATCH [[${PROJECT_BINARY_DIR}/pages]])
    set(DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}\")
    include([[${PROJECT_SOURCE_DIR}/cmake/InstallPages.cmake]])" COMPONENT documentation)
# Whoever gives a package away gives the licence with it.
foreach(package library:libzelkeymaster development:libzelkeymaster-dev documentation:zelkeymaster-doc
        tools:zelkm)
    string(REGEX MATCH "(.*):(.*)" package ${package})
    install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CMAKE_MATCH_2}
        RENAME copyright COMPONENT ${CMAKE_MATCH_1})
endforeach()
if(ZELKM_TOOL)
    install(TARGETS zelkm zelkeymaster_check COMPONENT tools)
    install(FILES ${zelkm_man_page} ${check_man_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        COMPONENT tools)
    install(FILES ${zelkm_completion} RENAME zelkm
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zelkeymaster)
install(EXPORT zelkeymaster-targets NAMESPACE zelkeymaster:: DESTINATION ${package_dir})
configure_package_config_file(cmake/zelkeymaster-config.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/zelkeymaster-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/zelkeymaster-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zelkeymaster-config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/zelkeymaster-config-version.cmake DESTINATION ${package_dir})

file(RELATIVE_PATH ZELKM_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
if(ZELKM_LIBCRYPTO STREQUAL "boringssl")
    set(ZELKM_PC_LIBCRYPTO ${ZELKM_BORINGSSL})
else()
    set(ZELKM_PC_LIBCRYPTO -lcrypto)
endif()
foreach(name zelkeymaster soft_keymaster keymaster_check)
    configure_file(cmake/${name}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

include(ZelkmPackages)
