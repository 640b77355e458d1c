# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Makes the manual of zelkeymaster_check from its --help.

s/\\/\\e/g
s/-/\\-/g
1i\
.TH ZELKEYMASTER_CHECK 1 "" "" "User Commands"\
.ad l\
.nh\
.SH NAME\
zelkeymaster_check \\- check whether a keymaster carries a store of secure objects\
.SH SYNOPSIS
s/^Usage: \(.*\)/\\fB\1\\fR/
s/^  or:  \(.*\)/.br\n\\fB\1\\fR/
s/^Check whether/.SH DESCRIPTION\n&/
s/^Exit status:$/.SH EXIT STATUS/
/^  *\\-\\-list /i\
.SH OPTIONS
s/^  \([^ ][^ ]*\( [^ ][^ ]*\)*\)   *\(.*\)/.TP\n\\fB\1\\fR\n\3/
s/^   *//
s/^$/.PP/
