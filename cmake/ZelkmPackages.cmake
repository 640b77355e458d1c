# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

# The target "package": a Debian package for each component of the installation. What they need of
# other packages is read from the programs themselves.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zelkeymaster)
# Who makes the packages answers for them, as with Debian's own tools.
if(DEFINED ENV{DEBEMAIL})
    set(maintainer "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
else()
    cmake_host_system_information(RESULT host QUERY FQDN)
    execute_process(COMMAND id -un OUTPUT_VARIABLE user OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(maintainer "${user} <${user}@${host}>")
endif()
set(ZELKM_MAINTAINER ${maintainer} CACHE STRING "The maintainer that the packages name")
set(CPACK_PACKAGE_CONTACT ${ZELKM_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Secure objects, password conversion and attestation")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL library development documentation)
if(ZELKM_TOOL)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/common)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libzelkeymaster)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "The shared library.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzelkeymaster-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS android-liblog-dev)
if(ZELKM_LIBCRYPTO STREQUAL "openssl")
    string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS ", libssl-dev (>= 3)")
endif()
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Headers, and a software keymaster that protects nothing.")
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME zelkeymaster-doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_DOCUMENTATION_DESCRIPTION "The pages, and the examples.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS zelkeymaster-doc)
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS zelkeymaster-doc)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zelkm)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "The command-line tool, over a software keymaster that protects nothing.")

include(CPack)
