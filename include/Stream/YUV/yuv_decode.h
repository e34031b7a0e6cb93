// Conversion of YUYV and raw Bayer frames to 24-bit pixels.
#ifndef WQZ_YUV_DECODE_H
#define WQZ_YUV_DECODE_H

#include <stdint.h>

#include "data_typedef/data_typedef.h"

/// Converts packed YUYV and 16-bit-per-sample raw Bayer frames to 24-bit pixels, blue first.
///
/// The tables define the conversion of YUYV. The constructor fills them and nothing writes them again, so any number of
/// threads may decode with one object at the same time. Changing a table is not supported: most pixels are converted by
/// vector instructions, which compute what the tables hold and never read them. Input and output of a conversion must
/// not overlap. No operation allocates, and none checks the output's size: the caller provides the room that each
/// names.
class WQZ_USBCAM_EXPORT YUV_Decode {
public:
    uint8_t R_Matrix[256 * 256];      ///< red, by (Y << 8) | V
    uint16_t G_UV_Matrix[256 * 256];  ///< chroma part of green plus 256, by (U << 8) | V
    uint8_t G_Matrix[256 * 512];      ///< green, by (Y << 9) | the G_UV_Matrix value
    uint8_t B_Matrix[256 * 256];      ///< blue, by (Y << 8) | U

    /// Fills the tables.
    YUV_Decode();

    /// Fills the tables; the object must not be in use by another thread.
    void Matrix_Init();

    /// Prints R_Matrix to standard output in 4096 rows: a line with the address of the first byte, then 16 bytes in
    /// hexadecimal, a tab after each; the next row follows on the same line.
    void Matrix_Debug();

    /// Converts groups of 4 bytes (Y0 U Y1 V) to 2 pixels each, rows in the order they come.
    /// The bytes are those of the tables. The widest vector instructions of the processor compute them.
    /// @param p_YUYV          the groups, at any alignment
    /// @param YUYV_Data_Size  bytes of input; the 1 to 3 bytes after the last whole group are ignored
    /// @param p_RGB           receives 6 bytes per whole group, at any alignment
    /// @param RGB_Data_Size   ignored
    /// @return true when at least one group was converted; callers need not look
    bool YUYV_Decode(uint8_t* p_YUYV, uint32_t YUYV_Data_Size, uint8_t* p_RGB, uint32_t RGB_Data_Size);

    /// Splits a GRBG mosaic of 16-bit little-endian samples into its colours, without interpolation.
    /// The low byte of a sample becomes its own colour of its pixel; the pixel's other two colours become 0.
    /// Rows are decoded in pairs. An odd number of whole rows makes the last pair read and write one row further;
    /// otherwise a partial row at the end is dropped. An odd Width leaves the last pixel of each row as it was.
    /// @param p_RAW          rows of Width * 2 bytes, at any alignment
    /// @param RAW_Data_Size  bytes of input
    /// @param Width          samples per row
    /// @param p_RGB          receives rows of Width * 3 bytes, rounded up to an even number of rows
    /// @param RGB_Data_Size  ignored
    /// @return true when at least one row was decoded, false for less than one whole row and for a Width of 0
    bool RAW0_Decode(uint8_t* p_RAW, uint32_t RAW_Data_Size, uint32_t Width, uint8_t* p_RGB, uint32_t RGB_Data_Size);

    /// As RAW0_Decode, for an RGGB mosaic.
    bool RAW1_Decode(uint8_t* p_RAW, uint32_t RAW_Data_Size, uint32_t Width, uint8_t* p_RGB, uint32_t RGB_Data_Size);

    /// As RAW0_Decode, for a BGGR mosaic.
    bool RAW2_Decode(uint8_t* p_RAW, uint32_t RAW_Data_Size, uint32_t Width, uint8_t* p_RGB, uint32_t RGB_Data_Size);

    /// As RAW0_Decode, for a GBRG mosaic whose second rows hold red in every sample.
    bool RAW3_Decode(uint8_t* p_RAW, uint32_t RAW_Data_Size, uint32_t Width, uint8_t* p_RGB, uint32_t RGB_Data_Size);

    /// Repacks 16-bit samples in place: the first byte becomes bits 2 to 9, the low two bits of the second byte become
    /// bits 0 and 1, the upper six bits 0.
    /// @param p_RAW  the samples, at any alignment
    /// @param size   bytes; an odd last byte is left as it is
    void RAW10_Decode(uint8_t* p_RAW, uint32_t size);

    /// The same repacking as RAW10_Decode.
    void RAW12_Decode(uint8_t* p_RAW, uint32_t size);
};

#endif  // WQZ_YUV_DECODE_H
