#include <gxftypes/support/mpeg_headers.h>

namespace Zorvan {

unsigned nextMpegStartCode(BitChunkParser& parser) {
    parser.alignToByte();
    unsigned lastThree = 0xFFFFFF;
    unsigned byte = 0;
    while (parser.getBits(8, byte)) {
        if (lastThree == 0x000001) {
            return 0x100 + byte;
        }
        lastThree = ((lastThree << 8) | byte) & 0xFFFFFF;
    }
    return 0;
}

bool MpegGopHeader::decode(BitChunkParser& parser, MpegCodecCtx*) {
    unsigned bits = 0;
    if (!parser.getBits(27, bits)) {
        return false;
    }
    timeCode = bits >> 2;
    closedGop = (bits & 2) != 0;
    brokenLink = (bits & 1) != 0;
    return true;
}

bool MpegSeqHeader::decode(BitChunkParser& parser, MpegCodecCtx*) {
    BitChunkParser ahead = parser;
    unsigned front = 0;
    unsigned back = 0;
    if (!ahead.getBits(32, front) || !ahead.getBits(31, back)) {
        return false;
    }
    parser = ahead;
    horizontalSize = front >> 20;
    verticalSize = (front >> 8) & 0xFFF;
    aspectRatioInformation = (front >> 4) & 0xF;
    frameRateCode = front & 0xF;
    bitRateValue = back >> 13;
    vbvBufferSizeValue = (back >> 2) & 0x3FF;
    return true;
}

} // namespace Zorvan
