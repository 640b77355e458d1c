// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Host stand-in for the platform's HIDL containers. It has nothing that the platform lacks: a
// source that compiles here compiles there, too.

#pragma once

#include <android/log.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace android {
namespace hardware {
namespace details {

// Prints a fatal log line and ends the process.
[[noreturn]] inline void logAlwaysFatal(const char* message) {
    __android_log_print(ANDROID_LOG_FATAL, "HidlSupport", "%s", message);
    std::abort();
}

// The iterators of hidl_vec. They are random access iterators, and do not convert to pointers.
template <typename T>
class hidl_vec_iterator {
  public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = std::remove_cv_t<T>;
    using difference_type = ptrdiff_t;
    using pointer = T*;
    using reference = T&;

    explicit hidl_vec_iterator(T* element = nullptr) : mElement(element) {}

    T& operator*() const { return *mElement; }
    T* operator->() const { return mElement; }
    T& operator[](ptrdiff_t n) const { return mElement[n]; }

    hidl_vec_iterator& operator++() { return *this += 1; }
    hidl_vec_iterator& operator--() { return *this -= 1; }
    hidl_vec_iterator operator++(int) { return hidl_vec_iterator(mElement++); }
    hidl_vec_iterator operator--(int) { return hidl_vec_iterator(mElement--); }
    hidl_vec_iterator& operator+=(ptrdiff_t n) {
        mElement += n;
        return *this;
    }
    hidl_vec_iterator& operator-=(ptrdiff_t n) { return *this += -n; }

    using Self = hidl_vec_iterator;
    friend Self operator+(Self it, ptrdiff_t n) { return it += n; }
    friend Self operator+(ptrdiff_t n, Self it) { return it += n; }
    friend Self operator-(Self it, ptrdiff_t n) { return it -= n; }
    friend ptrdiff_t operator-(Self a, Self b) { return a.mElement - b.mElement; }
    friend bool operator==(Self a, Self b) { return a.mElement == b.mElement; }
    friend bool operator!=(Self a, Self b) { return a.mElement != b.mElement; }
    friend bool operator<(Self a, Self b) { return a.mElement < b.mElement; }
    friend bool operator>(Self a, Self b) { return a.mElement > b.mElement; }
    friend bool operator<=(Self a, Self b) { return a.mElement <= b.mElement; }
    friend bool operator>=(Self a, Self b) { return a.mElement >= b.mElement; }

  private:
    T* mElement;
};

}  // namespace details

// An array with a 32-bit length. It owns its elements, made with new[], or borrows them.
template <typename T>
struct hidl_vec {
    hidl_vec() noexcept : mBuffer(nullptr), mSize(0), mOwnsBuffer(false) {}
    // A copy owns its elements, whether or not `other` does.
    hidl_vec(const hidl_vec& other) : hidl_vec() { copyFrom(other.data(), other.size()); }
    // `other` keeps its pointer and size, but no longer owns the elements.
    hidl_vec(hidl_vec&& other) noexcept : hidl_vec() { *this = std::move(other); }
    hidl_vec(const std::initializer_list<T> list) : hidl_vec() {
        copyFrom(list.begin(), list.size());
    }
    hidl_vec(const std::vector<T>& other) : hidl_vec() { copyFrom(other.begin(), other.size()); }
    template <typename InputIterator,
              typename = std::enable_if_t<std::is_convertible_v<
                  typename std::iterator_traits<InputIterator>::iterator_category,
                  std::input_iterator_tag>>>
    hidl_vec(InputIterator first, InputIterator last) : hidl_vec() {
        const auto count = std::distance(first, last);
        if (count < 0) {
            details::logAlwaysFatal("size can't be negative.");
        }
        copyFrom(first, static_cast<size_t>(count));
    }
    ~hidl_vec() { freeOwned(); }

    hidl_vec& operator=(const hidl_vec& other) {
        if (this != &other) {
            copyFrom(other.data(), other.size());
        }
        return *this;
    }
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        if (this != &other) {
            freeOwned();
            mBuffer = other.mBuffer;
            mSize = other.mSize;
            mOwnsBuffer = other.mOwnsBuffer;
            other.mOwnsBuffer = false;
        }
        return *this;
    }
    hidl_vec& operator=(const std::vector<T>& other) {
        copyFrom(other.begin(), other.size());
        return *this;
    }
    hidl_vec& operator=(std::initializer_list<T> list) {
        copyFrom(list.begin(), list.size());
        return *this;
    }

    operator std::vector<T>() const { return std::vector<T>(data(), data() + size()); }

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    size_t size() const { return mSize; }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }
    auto begin() { return details::hidl_vec_iterator<T>(mBuffer); }
    auto end() { return begin() + mSize; }
    auto begin() const { return details::hidl_vec_iterator<const T>(mBuffer); }
    auto end() const { return begin() + mSize; }

    bool operator==(const hidl_vec& other) const {
        return std::equal(data(), data() + size(), other.data(), other.data() + other.size());
    }
    bool operator!=(const hidl_vec& other) const { return !(*this == other); }

    // Keeps the elements that fit. New elements are default-initialised. Afterwards the vector owns
    // its elements.
    void resize(size_t size) {
        checkSize(size);
        T* buffer = new T[size];
        std::copy_n(data(), std::min(size, this->size()), buffer);
        adopt(buffer, size);
    }

    // Borrows `data`, or takes it over with `shouldOwn`; it must then come from new[].
    void setToExternal(T* data, size_t size, bool shouldOwn = false) {
        if (size > UINT32_MAX) {
            details::logAlwaysFatal("external vector size exceeds 2^32 elements.");
        }
        freeOwned();
        mBuffer = data;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = shouldOwn;
    }

    // Passes the elements to the caller, who frees them with delete[]. Borrowed elements are copied
    // first. This vector keeps its pointer and size.
    T* releaseData() {
        if (!mOwnsBuffer && mSize > 0) {
            resize(mSize);
        }
        mOwnsBuffer = false;
        return mBuffer;
    }

  private:
    static void checkSize(size_t size) {
        if (size > UINT32_MAX) {
            details::logAlwaysFatal("hidl_vec can't hold more than 2^32 elements.");
        }
    }

    // The source may lie inside this vector, so it is copied before the old elements are freed.
    template <typename InputIterator>
    void copyFrom(InputIterator first, size_t size) {
        checkSize(size);
        T* buffer = nullptr;
        if (size > 0) {
            buffer = new T[size];
            std::copy_n(first, size, buffer);
        }
        adopt(buffer, size);
    }

    void adopt(T* buffer, size_t size) {
        freeOwned();
        mBuffer = buffer;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = true;
    }

    void freeOwned() {
        if (mOwnsBuffer) {
            delete[] mBuffer;
        }
    }

    T* mBuffer;
    uint32_t mSize;
    bool mOwnsBuffer;
};

struct hidl_string {
    hidl_string() = default;
    hidl_string(const char* text) : mText(text) {}
    hidl_string(const std::string& text) : mText(text) {}

    const char* c_str() const { return mText.c_str(); }
    size_t size() const { return mText.size(); }
    bool empty() const { return mText.empty(); }
    operator std::string() const { return mText; }

  private:
    std::string mText;
};

// A fixed array inside the structure. Its elements are uninitialised unless the structure is
// value-initialised.
template <typename T, size_t N>
struct hidl_array {
    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }
    static constexpr size_t size() { return N; }

  private:
    T mBuffer[N];
};

}  // namespace hardware
}  // namespace android
