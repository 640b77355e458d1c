# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

# What a host offers in place of the device's platform:
#   zelkeymaster_platform   the headers of platform/host and the real liblog
#   zelkeymaster_libcrypto  OpenSSL, or BoringSSL as on a device

# liblog lies in a folder of its own, beside another libcrypto: it is linked by its full path, with
# a run path, and its headers are searched after the system's, which that folder would else shadow.
find_path(ZELKM_LIBLOG_INCLUDE_DIR android/log.h
    PATHS /usr/include PATH_SUFFIXES android NO_DEFAULT_PATH REQUIRED)
find_library(ZELKM_LIBLOG log
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
get_filename_component(ZELKM_LIBLOG_DIR ${ZELKM_LIBLOG} DIRECTORY)
set(CMAKE_BUILD_RPATH ${ZELKM_LIBLOG_DIR})
set(CMAKE_INSTALL_RPATH ${ZELKM_LIBLOG_DIR})

add_library(zelkeymaster_platform INTERFACE)
target_include_directories(zelkeymaster_platform INTERFACE
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/platform/host/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/zelkeymaster/platform>)
target_compile_options(zelkeymaster_platform INTERFACE "SHELL:-idirafter ${ZELKM_LIBLOG_INCLUDE_DIR}")
target_compile_features(zelkeymaster_platform INTERFACE cxx_std_17)
target_link_libraries(zelkeymaster_platform INTERFACE ${ZELKM_LIBLOG})
target_link_options(zelkeymaster_platform INTERFACE
    "$<INSTALL_INTERFACE:LINKER:-rpath,${ZELKM_LIBLOG_DIR}>")

add_library(zelkeymaster_libcrypto INTERFACE)
if(ZELKM_LIBCRYPTO STREQUAL "boringssl")
    # Its headers share liblog's folder, where they would be found after OpenSSL's: a link to them
    # alone comes first.
    set(boringssl_include ${CMAKE_BINARY_DIR}/boringssl_include)
    file(MAKE_DIRECTORY ${boringssl_include})
    file(CREATE_LINK ${ZELKM_LIBLOG_INCLUDE_DIR}/openssl ${boringssl_include}/openssl SYMBOLIC)
    target_include_directories(zelkeymaster_libcrypto SYSTEM INTERFACE
        $<BUILD_INTERFACE:${boringssl_include}>)
    find_library(ZELKM_BORINGSSL crypto PATHS ${ZELKM_LIBLOG_DIR} NO_DEFAULT_PATH REQUIRED)
    target_link_libraries(zelkeymaster_libcrypto INTERFACE ${ZELKM_BORINGSSL})
else()
    find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)
    target_link_libraries(zelkeymaster_libcrypto INTERFACE OpenSSL::Crypto)
endif()

find_package(plog CONFIG REQUIRED)
