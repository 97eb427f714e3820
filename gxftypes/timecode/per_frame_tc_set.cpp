#include <gxftypes/timecode/per_frame_tc_set.h>

#include <algorithm>
#include <cstring>

namespace GxfTypes {

PerFrameTcSet::PerFrameTcSet(unsigned field, unsigned timelineField)
    : link(*this), mediaField(field), timeline(timelineField) {}

void PerFrameTcSet::decode(GxfBuffer& buffer) {
    constexpr unsigned flagsOffset = entries * ST12Timecode::wireSize;

    unsigned char padded[wireSize] = {};
    unsigned char const* block = buffer.ptrBegin();
    if (buffer.nOccupied() < wireSize) {
        std::copy_n(block, buffer.nOccupied(), padded);
        block = padded;
    }
    std::memcpy(validFlags, block + flagsOffset, sizeof(validFlags));
    for (unsigned i = 0; i < entries; ++i) {
        if (!isValid(i)) {
            continue;
        }
        PerFrameTimecode& entry = timecodes[i];
        entry.decode(block + i * ST12Timecode::wireSize);
        // timecodeHz is still 1 here, so that the mark is that of the NTSC form at all rates:
        // intended.
        if (i % 2 != 0 && !entry.field(timecodeHz)) {
            fieldBitForced = true;
            entry.setField(timecodeHz, true);
        }
    }
    buffer.removeInput(wireSize);
}

FormatStr& PerFrameTcSet::toString(unsigned indent, FormatStr& text) const {
    bool const all = gxfDebug.on(gxfDebugArrays);
    int const width = static_cast<int>(indent);
    unsigned const first = firstField();
    unsigned field = first;

    text.format("tc f%d={", static_cast<int>(first));
    if (all) {
        text.format("\n%*si=  0,f=%d: ", width, "", static_cast<int>(first));
    }
    for (unsigned i = 0; i < entries; ++i) {
        if (i != 0 && i % 4 == 0) {
            field += 4;
            text.format(",\n%*si=%3d,f=%d: ", width, "", static_cast<int>(i),
                        static_cast<int>(field));
        } else if (i != 0) {
            text.cat(", ");
        }
        timecodes[i].toString(timecodeHz, text);
        if (!all && i == 2) {
            text.cat(", ...");
            i = entries - 2; // the last entry comes next
        }
    }
    return text.cat("}");
}

} // namespace GxfTypes
