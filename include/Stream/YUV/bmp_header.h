// The header of a 24-bit BMP file.
#ifndef WQZ_BMP_HEADER_H
#define WQZ_BMP_HEADER_H

#include <stdint.h>

/// The header as it lies in the file: little-endian, packed, 54 bytes, followed by the pixels.
/// Sizes in bytes, width and height in pixels.
struct __attribute__((packed)) bmp_header_t {
    char file_type[2];  ///< "BM"
    uint32_t file_size;
    uint16_t reserved1;
    uint16_t reserved2;
    uint32_t offset;     ///< of the pixels: 54
    uint32_t head_size;  ///< of the information header, which starts here: 40
    uint32_t width;
    uint32_t height;  ///< positive: declares that the rows run from bottom to top
    uint16_t bit_planes;
    uint16_t bits_per_pixel;
    uint32_t compression;
    uint32_t image_size;
    uint32_t h_res;
    uint32_t v_res;
    uint32_t color_palette;
    uint32_t vip_color;
    __extension__ uint8_t rgb_data[0];  ///< the pixels: blue, green, red
};

#endif  // WQZ_BMP_HEADER_H
