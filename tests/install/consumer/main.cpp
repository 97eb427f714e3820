#include <cstdio>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;

int main() {
    unsigned char endOfStream[] = {0x00, 0x00, 0x00, 0x00, 0x01, 0xFB, 0x00, 0x00,
                                   0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0xE1, 0xE2};
    GxfBuffer buffer(endOfStream, sizeof endOfStream, GxfBuffer::DataState::filled,
                     MediaAgent(nullptr));
    PacketPool pool;
    AutoRefPtr<Packet> header = pool.alloc(static_cast<PacketType>(0));
    if (!header->decode(buffer).success() || !header->isValid()) {
        return 1;
    }
    AutoRefPtr<Packet> packet = header->createActual();
    if (packet.get() == nullptr || packet->getEosPacket().get() == nullptr) {
        return 1;
    }
    std::printf("GxfTypes %s: %s\n", GXF_VERSION, packet->toString().get());
    return 0;
}
