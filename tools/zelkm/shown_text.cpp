// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "shown_text.h"

#include <new>
#include <ostream>

#include "store_values.h"

namespace zelkm_tool {

ShownText::ShownText(std::ostream& stream) : stream_(stream), behind_(stream.rdbuf(this)) {}

ShownText::~ShownText() {
    try {
        sync();
    } catch (const std::bad_alloc&) {  // what is pending is lost
    }
    stream_.rdbuf(behind_);
}

ShownText::int_type ShownText::overflow(int_type c) {
    const char byte = traits_type::to_char_type(c);
    return traits_type::eq_int_type(c, traits_type::eof()) || xsputn(&byte, 1) == 1
               ? traits_type::not_eof(c)
               : traits_type::eof();
}

std::streamsize ShownText::xsputn(const char* text, std::streamsize len) {
    pending_.append(text, static_cast<size_t>(len));
    const size_t last_line = pending_.rfind('\n');
    return last_line == pending_.npos || passOn(last_line + 1) ? len : 0;
}

int ShownText::sync() {
    return passOn(pending_.size()) && behind_->pubsync() == 0 ? 0 : -1;
}

// Throws nothing, even without memory: streams also flush in destructors.
bool ShownText::passOn(size_t len) {
    try {
        const std::string shown = printable(std::string_view(pending_).substr(0, len));
        pending_.erase(0, len);
        const auto shown_len = static_cast<std::streamsize>(shown.size());
        return behind_->sputn(shown.data(), shown_len) == shown_len;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace zelkm_tool
