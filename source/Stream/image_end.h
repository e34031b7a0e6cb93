// Finds where an image ends that zeros follow. Nothing here prints or traces.
#ifndef WQZ_IMAGE_END_H
#define WQZ_IMAGE_END_H

#include <cstdint>

/// @return whether any of the 100 bytes before the word boundary at or below `shift`, which is 100 or more, is not zero
bool Has_Data_Before(const uint8_t* p_data, uint32_t shift);

/// Finds the index just past the last byte that is not zero, without reading all of the data. A run of 100 or more zero
/// bytes inside the data can mislead it.
/// @param has_data  answers as Has_Data_Before does
/// @return 0 when there is no such byte
uint32_t Data_End(const uint8_t* p_data, uint32_t length, bool (*has_data)(const uint8_t*, uint32_t));

bool Starts_Jpeg(const uint8_t* p_data, uint32_t length);
bool Ends_Jpeg(const uint8_t* p_data, uint32_t length);

/// @return the length of the JPEG image without the zeros behind it; `length` when it has no end of a JPEG image
uint32_t Jpeg_Length(const uint8_t* p_data, uint32_t length);

#endif  // WQZ_IMAGE_END_H
