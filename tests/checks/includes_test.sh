#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# The sources for a device include only their own headers and those in the lists below, so that no
# header gets in that is not there on a device.

set -euo pipefail
cd "$(dirname "$0")/../.."

platform='
    android/hardware/keymaster/4.0/IKeymasterDevice.h android/hardware/keymaster/4.0/types.h
    android/log.h hardware/keymaster_defs.h hidl/HidlSupport.h hidl/Status.h
    keymasterV4_0/Keymaster.h openssl/*.h plog/*.h'
cxx='
    algorithm any array atomic bitset charconv chrono codecvt complex condition_variable deque
    exception execution filesystem forward_list fstream functional future initializer_list iomanip
    ios iosfwd iostream istream iterator limits list locale map memory memory_resource mutex new
    numeric optional ostream queue random ratio regex scoped_allocator set shared_mutex sstream
    stack stdexcept streambuf string string_view strstream system_error thread tuple type_traits
    typeindex typeinfo unordered_map unordered_set utility valarray variant vector
    cassert cctype cerrno cfenv cfloat cinttypes climits clocale cmath csetjmp csignal cstdarg
    cstddef cstdint cstdio cstdlib cstring ctime cuchar cwchar cwctype'
c='
    assert.h ctype.h errno.h fenv.h float.h inttypes.h limits.h locale.h math.h setjmp.h signal.h
    stdarg.h stdbool.h stddef.h stdint.h stdio.h stdlib.h string.h time.h uchar.h wchar.h wctype.h'
posix='
    dirent.h fcntl.h libgen.h poll.h pthread.h sched.h semaphore.h strings.h sys/mman.h
    sys/resource.h sys/select.h sys/stat.h sys/statvfs.h sys/time.h sys/types.h sys/uio.h
    sys/wait.h unistd.h'
folders=(include common keymaster_check tools/zelkeymaster_check)
own="keymaster_check/*.h $(find "${folders[@]}" -name '*.h' -printf '%f ')"

is_allowed() {  # HEADER PATTERN...
    local header=$1 pattern
    shift
    for pattern; do
        # shellcheck disable=SC2053  # a pattern
        if [[ $header == $pattern ]]; then return; fi
    done
    return 1
}

set -f  # the lists hold patterns
count=0 status=0
while IFS=: read -r file line directive; do
    [[ $directive =~ [\<\"]([^\>\"]*) ]] && header=${BASH_REMATCH[1]}
    # shellcheck disable=SC2086  # words are wanted
    case $directive in
        *\"*) is_allowed "$header" $own ;;
        *) is_allowed "$header" 'keymaster_check/*.h' $platform $cxx $c $posix ;;
    esac || {
        echo "$file:$line: <$header> is not there on a device" >&2
        status=1
    }
    count=$((count + 1))
done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include\>' "${folders[@]}" --include='*.h' --include='*.cpp')
((count > 0)) || { echo "no include directive found" >&2; exit 1; }
echo "$count include directives"
exit $status
