// Reads and writes only the part of a record that both the caller and this library know.
#ifndef WQZ_CAMERA_RECORDS_H
#define WQZ_CAMERA_RECORDS_H

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "Camera/failure.h"

namespace wqz_camera {

/// @throws Failure  for null, and for a record smaller than the first version of its kind
template <typename Record>
void Check_Record(const Record* record, const char* what)
{
    if (record == nullptr) {
        throw Failure(EINVAL, std::string("The ") + what + " is a null pointer.");
    }
    if (record->size < sizeof(Record)) {
        throw Failure(EINVAL, std::string("The field `size` of the ") + what + " is " + std::to_string(record->size) +
                                  "; set it to the size of the record, at least " + std::to_string(sizeof(Record)) +
                                  ".");
    }
}

/// Fills a caller's record of `size` bytes. What a newer caller knows beyond it becomes 0.
template <typename Record>
void Store(void* target, uint32_t size, Record source)
{
    source.size = size;
    std::memcpy(target, &source, std::min<size_t>(size, sizeof source));
    if (size > sizeof source) {
        std::memset(static_cast<uint8_t*>(target) + sizeof source, 0, size - sizeof source);
    }
}

template <typename Record>
void Store(Record* target, const Record& source)
{
    Store(static_cast<void*>(target), target->size, source);
}

/// Fills the caller's array as far as it goes. The records lie as far apart as the first one says.
/// @return how many records there are
template <typename Record>
int32_t Store_List(Record* array, uint32_t capacity, const std::vector<Record>& records)
{
    if (capacity > 0) {
        Check_Record(array, "first record of the array");
        const uint32_t stride = array->size;
        auto* target = reinterpret_cast<uint8_t*>(array);
        for (size_t i = 0; i < std::min<size_t>(capacity, records.size()); ++i) {
            Store(target + i * stride, stride, records[i]);
        }
    }
    return static_cast<int32_t>(std::min<size_t>(records.size(), std::numeric_limits<int32_t>::max()));
}

/// Copies a text into a field, cut where it does not fit.
template <size_t N>
void Store_Text(char (&field)[N], const std::string& text)
{
    const size_t length = std::min(text.size(), N - 1);
    std::memcpy(field, text.data(), length);
    std::memset(field + length, 0, N - length);
}

/// @return the text of a kernel field, which need not be terminated
template <size_t N>
std::string Field_Text(const unsigned char (&field)[N])
{
    const auto* text = reinterpret_cast<const char*>(field);
    return std::string(text, strnlen(text, N));
}

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_RECORDS_H
