# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

# Installs the pages, in the folders that they have here, so that their links and what the tool says
# about them hold. What is linked but not installed is only named. Run by "cmake --install", with
# SOURCE, SCRATCH and DESTINATION set.

file(GLOB pages RELATIVE ${SOURCE}
    ${SOURCE}/README.md ${SOURCE}/CHANGELOG.md ${SOURCE}/SECURITY.md ${SOURCE}/docs/*.md)
set(not_installed "Android\\.bp|CONTRIBUTING\\.md|common|include|keymaster_check|platform|scripts|tests")
foreach(page ${pages})
    file(READ ${SOURCE}/${page} text)
    string(REGEX REPLACE "\\[([^]]*)\\]\\((\\.\\./)?(${not_installed})[^)]*\\)" "\\1" text "${text}")
    file(WRITE ${SCRATCH}/${page} "${text}")
endforeach()
file(INSTALL ${SCRATCH}/ ${SOURCE}/LICENSE ${SOURCE}/examples DESTINATION ${DESTINATION})
file(INSTALL ${SOURCE}/docs DESTINATION ${DESTINATION} PATTERN "*.md" EXCLUDE)
# What root wrote, its owner could not write again.
file(REMOVE_RECURSE ${SCRATCH})
