#include <gxftypes/packet/flt.h>

namespace GxfTypes {

FieldLocTblPacket::FieldLocTblPacket(PacketPool& owner)
    : Packet(packetTypeFieldLocTbl, owner), msgClamp(1) {
    resetPrivate(true);
}

FieldLocTblPacket::FieldLocTblPacket(Packet& source) : Packet(source), msgClamp(1) {
    resetPrivate(false);
}

void FieldLocTblPacket::reset(Packet const& source) {
    Packet::resetPrivate(source);
    resetPrivate(false);
}

void FieldLocTblPacket::reset(PacketType newType) {
    Packet::resetPrivate(newType);
    resetPrivate(true);
}

void FieldLocTblPacket::resetPrivate(bool valid) {
    fieldsPerEntry = 0;
    firstField = 0;
    packetValid = valid;
    table.reset();
}

OpResult FieldLocTblPacket::decode(GxfBuffer& buffer) {
    if (gxfDecodeDetail.get() > 1) {
        infoMsg("start FieldLocTblPacket decode @%lld\n",
                static_cast<long long>(buffer.beginOffset()));
    }
    packetValid = false;
    unsigned remaining = getPayloadLength();
    if (remaining <= 7) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    fieldsPerEntry = buffer.decodeUint32Lsbf();
    unsigned const count = buffer.decodeUint32Lsbf();
    remaining -= 8;
    if (count * 4 > remaining || count > maxEntries) {
        return gxfError(GxfOpSubsystem::badDecodeData);
    }
    table.resize(count);
    for (unsigned i = 0; i < count; ++i) {
        table[i] = buffer.decodeUint32Lsbf();
    }
    remaining -= count * 4;
    if (remaining != 0) {
        buffer.removeInput(remaining);
    }
    packetValid = checkTableValidity();
    if (gxfDecodeDetail.get() > 1) {
        infoMsg("end FieldLocTblPacket decode: %s\n", toString().get());
    }
    return OpResult::Ok;
}

bool FieldLocTblPacket::checkTableValidity() const {
    bool const tellErrors = gxfDebug.on(gxfDebugErrors);
    for (unsigned i = 1; i < table.size(); ++i) {
        if (table[i] == 0) {
            if (tellErrors) {
                msgClamp.sendMessage(
                    FormatStr("FLT has zeroed offset @idx[%d]\n", static_cast<int>(i)));
            }
        } else if (table[i - 1] > table[i]) {
            if (tellErrors) {
                FormatStr const text("FLT offsets are invalid @idx[%d]", static_cast<int>(i));
                OpResult(OpResult::Error, GxfOpSubsystem::badDecodeData, gxfOpSubsystem.getId(),
                         text.get());
            }
            return false;
        }
    }
    return true;
}

bool FieldLocTblPacket::isEqual(Packet const& other) const {
    auto const* const flt = dynamic_cast<FieldLocTblPacket const*>(&other);
    if (flt == nullptr || table.size() != flt->table.size() || isValid() != flt->isValid()) {
        return false;
    }
    for (unsigned i = 0; i < table.size(); i += 5) {
        if (table[i] != flt->table[i]) {
            return false;
        }
    }
    return true;
}

bool FieldLocTblPacket::findBounds(unsigned field, unsigned margin, OffsetBracket& bracket) {
    if (table.size() < 2) {
        return false;
    }
    if (fieldsPerEntry <= margin) {
        margin *= 2;
    }
    if (firstField >= field || field < margin || fieldsPerEntry == 0) {
        return false;
    }
    unsigned const lowerEntry = (field - margin - firstField) / fieldsPerEntry;
    if (lowerEntry >= table.size()) {
        return false;
    }
    bracket.lower = boundOf(lowerEntry);

    unsigned const upperTarget = field + margin;
    unsigned upperEntry = (upperTarget - firstField) / fieldsPerEntry;
    if (fieldOf(upperEntry) <= upperTarget) {
        ++upperEntry;
    }
    if (upperEntry < table.size()) {
        bracket.upper = boundOf(upperEntry);
    }
    return true;
}

FormatStr& FieldLocTblPacket::toString(unsigned indent, FormatStr& text) const {
    Packet::toString(indent, text);
    text.format("={\n%*s%d flds/entry,entry[%d]={", static_cast<int>(indent), "",
                static_cast<int>(fieldsPerEntry), static_cast<int>(table.size()));
    entriesToString(indent, text);
    return text;
}

void FieldLocTblPacket::entriesToString(unsigned indent, FormatStr& text) const {
    bool const all = gxfDebug.on(gxfDebugArrays);
    unsigned const size = table.size();
    unsigned const shown = all || size < 3 ? size : 3;
    for (unsigned i = 0; i < shown; ++i) {
        if (all && i % 5 == 0) {
            text.format("\n%*s", static_cast<int>(indent) + 2, "");
        }
        text.format("f%5d: %11lld", static_cast<int>(fieldOf(i)),
                    static_cast<long long>(offsetOf(i)));
        if (i + 1 != size) {
            text.cat(", ");
        }
        if (!all && i == 2) {
            text.cat("... ");
        }
    }
    if (all) {
        text.cat("}}");
        return;
    }
    // A table of five entries or fewer gets no closing braces, and the last entry is printed under
    // the field behind it, its position in 32 bits: intended.
    if (size > 5) {
        text.format("f%3d: %4d}}", static_cast<int>(size * fieldsPerEntry),
                    static_cast<int>(table[size - 1] * bytesPerUnit));
    }
}

} // namespace GxfTypes
