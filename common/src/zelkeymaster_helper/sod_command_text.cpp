// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "sod_command_text.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace zelkm {
namespace {

using StringList = std::vector<std::string>;

// Takes a text piece by piece. Counts the bytes, and copies them once there is a buffer for them.
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

    void conditions(SODOperationParam& p) {
        const StringList& columns = p.getWhereColumnList();
        const StringList& values = p.getWhereValueList();
        for (size_t i = 0; i < columns.size(); ++i) {
            *this << (i != 0 ? " AND " : "") << columns[i] << "=";
            if (i < values.size()) {
                *this << values[i];
            }
        }
    }

  private:
    uint8_t* to_;
    size_t len_ = 0;
};

// Makes the text that write(Writer*) produces: the first run counts, the second one copies.
template <typename Write>
CommandText textOf(Write write) {
    Writer counter(nullptr);
    write(&counter);
    SecretBuffer data = allocateSecretBuffer(counter.len());
    if (data != nullptr) {
        Writer writer(data.get());
        write(&writer);
    }
    return {std::move(data), counter.len()};
}

}  // namespace

CommandText insertCommand(SODOperationParam& p) {
    return textOf([&p](Writer* w) {
        *w << "INSERT (" << p.getColumnList() << ") VALUE (" << p.getDataList() << ")";
    });
}

CommandText selectCommand(SODOperationParam& p) {
    return textOf([&p](Writer* w) {
        *w << "SELECT (" << p.getOutputFormat() << ") WHERE ";
        w->conditions(p);
    });
}

CommandText updateCommand(SODOperationParam& p) {
    return textOf([&p](Writer* w) {
        *w << "UPDATE (" << p.getColumnList() << ") VALUE (" << p.getDataList() << ") WHERE ";
        w->conditions(p);
    });
}

CommandText deleteCommand(SODOperationParam& p) {
    return textOf([&p](Writer* w) {
        *w << "DELETE WHERE ";
        w->conditions(p);
    });
}

}  // namespace zelkm
