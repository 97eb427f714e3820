#include <gxftypes/support/gxf_preserved_data.h>

#include <algorithm>
#include <cstring>

#include <gxftypes/support/gxf_op_subsystem.h>

namespace GxfTypes {

using Zorvan::GxfBuffer;
using Zorvan::OpResult;

OpResult GxfPreservedData::decode(GxfBuffer& buffer, unsigned n, DecodeMode mode) {
    if (buffer.nOccupied() < n) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    m_fileOffset = buffer.beginOffset();
    if (mode == keep) {
        m_data = buffer.decodeBlob(n);
        m_kept = n;
    } else {
        buffer.removeInput(n);
    }
    m_size = n;
    return OpResult::Ok;
}

OpResult GxfPreservedData::encode(GxfBuffer& out) const {
    if (m_size > out.nUnoccupied()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    if (m_size == 0) {
        return OpResult::Ok;
    }
    if (m_size > m_kept) {
        return gxfError(GxfOpSubsystem::unimplemented);
    }
    if (!out.encodeBlob(m_data.get(), m_size)) {
        return gxfError(GxfOpSubsystem::badEncodeData);
    }
    return OpResult::Ok;
}

void GxfPreservedData::copy(GxfPreservedData const& other) {
    if (this == &other) {
        return;
    }
    m_data = nullptr;
    m_kept = 0;
    if (other.m_data.get() != nullptr) {
        std::uint32_t const kept = std::min(other.m_kept, other.m_size);
        m_data = new unsigned char[kept];
        m_kept = kept;
        if (kept != 0) {
            std::memcpy(m_data.get(), other.m_data.get(), kept);
        }
    }
    m_size = other.m_size;
    m_fileOffset = other.m_fileOffset;
}

void GxfPreservedData::discard() {
    m_data = nullptr;
    m_kept = 0;
    m_size = 0;
    m_fileOffset = 0;
}

} // namespace GxfTypes
