// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command texts of secure object operations. See sod_command_text.h.

#include "sod_command_text.h"

#include <cstring>

namespace zelkm {
namespace {

// Takes a text piece by piece: counts the bytes, and copies them once there is a place for them.
class Writer {
  public:
    explicit Writer(uint8_t* to) : to_(to) {}

    size_t len() const { return len_; }

    Writer& operator<<(std::string_view piece) {
        if (to_ != nullptr) {
            std::memcpy(to_ + len_, piece.data(), piece.size());
        }
        len_ += piece.size();
        return *this;
    }

    Writer& operator<<(const StringList& items) {
        for (size_t i = 0; i < items.size(); ++i) {
            *this << (i != 0 ? "," : "") << items[i];
        }
        return *this;
    }

    Writer& operator<<(const Conditions& conditions) {
        for (size_t i = 0; i < conditions.columns.size(); ++i) {
            *this << (i != 0 ? " AND " : "") << conditions.columns[i] << "=";
            if (i < conditions.values.size()) {
                *this << conditions.values[i];
            }
        }
        return *this;
    }

  private:
    uint8_t* to_;
    size_t len_ = 0;
};

// The text that write(Writer*) makes.
template <typename Write>
CommandText textOf(Write write) {
    Writer counter(nullptr);
    write(&counter);
    CommandText text = {allocateSecretBuffer(counter.len()), counter.len()};
    if (text.data != nullptr) {
        Writer writer(text.data.get());
        write(&writer);
    }
    return text;
}

}  // namespace

CommandText insertCommand(const StringList& columns, const StringList& values) {
    return textOf([&](Writer* w) { *w << "INSERT (" << columns << ") VALUE (" << values << ")"; });
}

CommandText selectCommand(const StringList& columns, const Conditions& conditions) {
    return textOf([&](Writer* w) { *w << "SELECT (" << columns << ") WHERE " << conditions; });
}

CommandText updateCommand(const StringList& columns, const StringList& values,
                          const Conditions& conditions) {
    return textOf([&](Writer* w) {
        *w << "UPDATE (" << columns << ") VALUE (" << values << ") WHERE " << conditions;
    });
}

CommandText deleteCommand(const Conditions& conditions) {
    return textOf([&](Writer* w) { *w << "DELETE WHERE " << conditions; });
}

}  // namespace zelkm
