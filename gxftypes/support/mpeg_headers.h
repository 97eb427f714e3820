#pragma once

#include <cstdint>

#include <gxftypes/support/bit_chunk_parser.h>

namespace Zorvan {

/// What a decoder knows of the stream so far; the headers here need none of it.
struct MpegCodecCtx;

/// Start codes of ISO/IEC 13818-2, table 6-1, as nextMpegStartCode() gives them.
enum MpegStartCode : unsigned {
    mpegPictureStartCode = 0x100,
    mpegFirstSliceStartCode = 0x101,
    mpegSequenceHeaderCode = 0x1B3,
    mpegGroupStartCode = 0x1B8,
};

/// Advances behind the next start code (00 00 01 and one byte more) and returns it as 0x100 + its
/// last byte; 0 at the end of the data, also when the end cuts a start code off.
unsigned nextMpegStartCode(BitChunkParser& parser);

/// The group of pictures header of ISO/IEC 13818-2, 6.2.2.6, behind its start code.
///
///     time_code 25 | closed_gop 1 | broken_link 1
struct MpegGopHeader {
    /// False, with nothing changed, when the header is cut off.
    bool decode(BitChunkParser& parser, MpegCodecCtx* context);

    std::uint32_t timeCode = 0;
    bool closedGop = false;
    bool brokenLink = false;
};

/// The sequence header of ISO/IEC 13818-2, 6.2.2.1, behind its start code.
///
///     horizontal_size_value 12 | vertical_size_value 12 | aspect_ratio_information 4 |
///     frame_rate_code 4 | bit_rate_value 18 | marker 1 | vbv_buffer_size_value 10 |
///     constrained_parameters_flag 1 | load_intra_quantiser_matrix 1 | ...
struct MpegSeqHeader {
    /// False, with nothing changed, when the bits in front of the matrices are cut off. Marker bits
    /// and zero sizes aren't judged, and the matrices aren't read.
    bool decode(BitChunkParser& parser, MpegCodecCtx* context);

    std::uint32_t horizontalSize = 0; ///< in pixels
    std::uint32_t verticalSize = 0;   ///< in lines
    std::uint32_t aspectRatioInformation = 0;
    std::uint32_t frameRateCode = 0;
    std::uint32_t bitRateValue = 0; ///< in units of 400 bits per second
    std::uint32_t vbvBufferSizeValue = 0;
};

} // namespace Zorvan
