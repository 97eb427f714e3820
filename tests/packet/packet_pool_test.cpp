#include <atomic>
#include <cerrno>
#include <functional>
#include <iterator>
#include <new>
#include <random>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/allocation_count.h>
#include <testing/bytes.h>
#include <testing/capture.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

PacketType typeOf(unsigned value) { return static_cast<PacketType>(value); }

auto raised(std::string const& function) {
    return MatchesRegex("error internalError \\(" + function + ", gxf\\.cpp:[0-9]+\\)\n");
}

/// A packet with a type of the test's choice, which tells when it goes.
class ToldPacket : public Packet {
  public:
    ToldPacket(PacketType packetType, PacketPool& owner, std::vector<std::string>& destroyed)
        : Packet(packetType, owner), m_destroyed(destroyed), m_name(getName(packetType)) {}
    ~ToldPacket() override { m_destroyed.push_back(m_name); }

    void reset(Packet const& source) override { resetPrivate(source); }
    void reset(PacketType newType) override {
        if (onReset) {
            onReset();
        }
        resetPrivate(newType);
    }
    OpResult decode(GxfBuffer&) override { return OpResult::Ok; }
    bool isEqual(Packet const&) const override { return false; }

    int count() const { return refCount.getCount(); }

    std::function<void()> onReset;

  private:
    std::vector<std::string>& m_destroyed;
    std::string m_name;
};

/// Gives a new packet to the pool's free packets by a first and last reference.
ToldPacket* giveToPool(PacketType type, PacketPool& pool, std::vector<std::string>& destroyed) {
    auto* const packet = new ToldPacket(type, pool, destroyed);
    packet->preserve();
    packet->release();
    return packet;
}

/// Keeps a packet past the end of its pool, in which it can't be destroyed any more.
void leak(AutoRefPtr<Packet> const& packet) {
    static auto* const leaked = new std::vector<Packet*>;
    packet->preserve();
    leaked->push_back(packet.get());
}

constexpr unsigned kinds[] = {0, 188, 191, 251, 252, 253, 256};

} // namespace

TEST(PacketPool, MakesTheClassOfEachType) {
    PacketPool pool;
    for (unsigned const type : kinds) {
        SCOPED_TRACE(type);
        MessageCapture const capture;
        AutoRefPtr<Packet> const packet = pool.alloc(typeOf(type));
        ASSERT_NE(packet.get(), nullptr);
        Packet* const object = packet.get();
        EXPECT_EQ(dynamic_cast<PacketHeader*>(object) != nullptr, type == 0);
        EXPECT_EQ(dynamic_cast<MapPacket*>(object) != nullptr, type == 188);
        EXPECT_EQ(dynamic_cast<MediaPacket*>(object) != nullptr, type == 191);
        EXPECT_EQ(dynamic_cast<EndOfStreamPacket*>(object) != nullptr, type == 251);
        EXPECT_EQ(dynamic_cast<FieldLocTblPacket*>(object) != nullptr, type == 252);
        EXPECT_EQ(dynamic_cast<UmfPacket*>(object) != nullptr, type == 253);
        EXPECT_EQ(dynamic_cast<UmfPacket::UmfPacketChunk*>(object) != nullptr, type == 256);
        EXPECT_EQ(packet->getType(), typeOf(type));
        EXPECT_EQ(packet->length, 16U);
        EXPECT_EQ(packet->preserve(), 2);
        EXPECT_EQ(packet->release(), 1);
        EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
    }
}

TEST(PacketPool, OtherTypesGiveNothingAfterTwoErrors) {
    PacketPool pool;
    AutoRefPtr<Packet> const model = pool.alloc(packetTypeHeader);
    MessageCapture capture;
    for (unsigned const type : {1U, 187U, 189U, 190U, 192U, 249U, 250U, 254U, 255U, 257U, 0x1BCU,
                                0x800000BCU, 0xFFFFFFFFU}) {
        SCOPED_TRACE(type);
        EXPECT_EQ(pool.alloc(typeOf(type)).get(), nullptr);
        EXPECT_THAT(capture.texts(MessageKind::Trace),
                    ElementsAre(raised("allocLokd"), raised("alloc")));
        capture.clear();
        model->type = typeOf(type);
        EXPECT_EQ(pool.alloc(*model).get(), nullptr);
        EXPECT_THAT(capture.texts(MessageKind::Trace),
                    ElementsAre(raised("allocLokd"), raised("alloc")));
        EXPECT_THAT(capture.texts(), IsEmpty());
        capture.clear();
    }
    EXPECT_NE(pool.alloc(packetTypeMap).get(), nullptr);
}

TEST(PacketPool, ModelHandsOverItsHeader) {
    PacketPool pool;
    AutoRefPtr<Packet> const model = pool.alloc(packetTypeHeader);
    model->fileOffset = 0x0102030405060708;
    model->leader = 0x11121314;
    model->leaderMark = 0x21;
    model->length = 0x31323334;
    model->reserved = 0x41424344;
    model->trailerE1 = 0x51;
    model->trailerE2 = 0x61;
    for (unsigned const type : kinds) {
        SCOPED_TRACE(type);
        model->type = typeOf(type);
        AutoRefPtr<Packet> const packet = pool.alloc(*model);
        ASSERT_NE(packet.get(), nullptr);
        EXPECT_NE(packet.get(), model.get());
        EXPECT_EQ(packet->fileOffset, 0x0102030405060708U);
        EXPECT_EQ(packet->leader, 0x11121314U);
        EXPECT_EQ(packet->leaderMark, 0x21U);
        EXPECT_EQ(packet->type, typeOf(type));
        EXPECT_EQ(packet->length, 0x31323334U);
        EXPECT_EQ(packet->reserved, 0x41424344U);
        EXPECT_EQ(packet->trailerE1, 0x51U);
        EXPECT_EQ(packet->trailerE2, 0x61U);
    }
}

TEST(PacketPool, PayloadFlagsFollowTheFormOfTheReset) {
    PacketPool pool;
    for (unsigned const type : {188U, 191U, 252U, 253U}) {
        AutoRefPtr<Packet> const byType = pool.alloc(typeOf(type));
        EXPECT_TRUE(byType->isValid()) << type;
        EXPECT_FALSE(pool.alloc(*byType)->isValid()) << type;
    }
}

TEST(PacketPool, FreePacketsAreHandedOutAgain) {
    PacketPool pool;
    for (unsigned const type : kinds) {
        Packet* const first = pool.alloc(typeOf(type)).get();
        EXPECT_EQ(pool.alloc(typeOf(type)).get(), first) << type;
        AutoRefPtr<Packet> const again = pool.alloc(typeOf(type));
        EXPECT_EQ(again.get(), first) << type;
        EXPECT_NE(pool.alloc(typeOf(type)).get(), first) << type;
    }
}

TEST(PacketPool, CleansOnTheWayOutOnly) {
    PacketPool pool;
    for (unsigned const type : kinds) {
        SCOPED_TRACE(type);
        Packet* packet = nullptr;
        {
            AutoRefPtr<Packet> const used = pool.alloc(typeOf(type));
            packet = used.get();
            packet->length = 99;
            packet->fileOffset = 1234;
        }
        EXPECT_EQ(packet->length, 99U);
        EXPECT_EQ(packet->fileOffset, 1234U);
        AutoRefPtr<Packet> const again = pool.alloc(typeOf(type));
        ASSERT_EQ(again.get(), packet);
        EXPECT_EQ(packet->length, 16U);
        EXPECT_EQ(packet->fileOffset, 0U);
    }
}

TEST(PacketPool, RecyclesByType) {
    constexpr unsigned types[] = {0, 188, 191, 251, 252, 253, 256};
    std::vector<std::string> destroyed;
    for (unsigned const type : types) {
        PacketPool pool;
        ToldPacket* const given = giveToPool(typeOf(type), pool, destroyed);
        for (unsigned const other : types) {
            if (other != type) {
                EXPECT_NE(pool.alloc(typeOf(other)).get(), given) << type << ", " << other;
            }
        }
        EXPECT_EQ(pool.alloc(typeOf(type)).get(), given) << type;
    }
    EXPECT_THAT(destroyed, ElementsAre("packet header", "map", "media", "EOS", "fieldLocTbl",
                                       "umfFile", "internalUmfChunk"));
}

TEST(PacketPool, PacketOfAnotherTypeIsNeitherKeptNorDestroyed) {
    for (unsigned const type : {250U, 254U, 255U, 1U, 0x1BCU}) {
        SCOPED_TRACE(type);
        std::vector<std::string> destroyed;
        PacketPool pool;
        ToldPacket packet(typeOf(type), pool, destroyed);
        packet.preserve();
        MessageCapture const capture;
        EXPECT_EQ(packet.release(), 0);
        EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
        for (unsigned const kind : kinds) {
            EXPECT_NE(pool.alloc(typeOf(kind)).get(), &packet);
        }
        pool.reset();
        EXPECT_THAT(destroyed, IsEmpty());
    }
}

TEST(PacketPool, HeaderGoesBackToTheHeadersWhateverItsType) {
    PacketPool pool;
    for (unsigned const type : {188U, 191U, 250U, 251U, 252U, 253U, 254U, 255U, 1U}) {
        SCOPED_TRACE(type);
        Packet* header = nullptr;
        {
            AutoRefPtr<Packet> const used = pool.alloc(packetTypeHeader);
            header = used.get();
            Bytes bytes = GxfTesting::header(type, 64);
            GxfBuffer buffer = bytes.filledBuffer();
            ASSERT_TRUE(header->decode(buffer));
        }
        AutoRefPtr<Packet> const media = pool.alloc(packetTypeMedia);
        EXPECT_NE(media.get(), header);
        AutoRefPtr<Packet> const again = pool.alloc(packetTypeHeader);
        EXPECT_EQ(again.get(), header);
        EXPECT_EQ(again->getType(), packetTypeHeader);
    }
}

TEST(PacketPool, KeepsTheLastReturnedOfEachKindButMedia) {
    for (unsigned const type : {0U, 188U, 251U, 252U, 253U, 256U}) {
        SCOPED_TRACE(type);
        std::vector<std::string> destroyed;
        PacketPool pool;
        giveToPool(typeOf(type), pool, destroyed);
        EXPECT_THAT(destroyed, IsEmpty());
        ToldPacket* const second = giveToPool(typeOf(type), pool, destroyed);
        EXPECT_THAT(destroyed, ElementsAre(getName(typeOf(type))));
        AutoRefPtr<Packet> const again = pool.alloc(typeOf(type));
        EXPECT_EQ(again.get(), second);
    }
}

TEST(PacketPool, SecondMapPacketStays) {
    MessageCapture const capture;
    {
        PacketPool pool;
        AutoRefPtr<Packet> first = pool.alloc(packetTypeMap);
        AutoRefPtr<Packet> second = pool.alloc(packetTypeMap);
        Packet* const kept = second.get();
        first = nullptr;
        second = nullptr;
        EXPECT_EQ(pool.alloc(packetTypeMap).get(), kept);
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(PacketPool, SecondHeaderStays) {
    PacketPool pool;
    AutoRefPtr<Packet> first = pool.alloc(packetTypeHeader);
    AutoRefPtr<Packet> second = pool.alloc(packetTypeHeader);
    Packet* const kept = second.get();
    first->type = packetTypeMedia;
    second->type = packetTypeMap;
    first = nullptr;
    second = nullptr;
    EXPECT_EQ(pool.alloc(packetTypeHeader).get(), kept);
}

TEST(PacketPool, KeepsAllMediaPacketsLastInFirstOut) {
    PacketPool pool;
    std::vector<AutoRefPtr<Packet>> inUse;
    for (unsigned i = 0; i < 50; ++i) {
        inUse.push_back(pool.alloc(packetTypeMedia));
    }
    std::vector<Packet*> returned;
    for (AutoRefPtr<Packet>& packet : inUse) {
        returned.push_back(packet.get());
        packet = nullptr;
    }
    for (std::size_t i = inUse.size(); i-- > 0;) {
        inUse[i] = pool.alloc(packetTypeMedia);
        EXPECT_EQ(inUse[i].get(), returned[i]) << i;
    }
}

TEST(PacketPool, ResetDestroysTheFreePacketsInOrder) {
    std::vector<std::string> destroyed;
    PacketPool pool;
    AutoRefPtr<Packet> const inUse = pool.alloc(packetTypeMap);
    for (unsigned const type : {256U, 191U, 0U, 188U, 253U, 251U, 252U, 191U}) {
        giveToPool(typeOf(type), pool, destroyed);
    }
    pool.reset();
    EXPECT_THAT(destroyed, ElementsAre("map", "EOS", "fieldLocTbl", "umfFile", "packet header",
                                       "internalUmfChunk", "media", "media"));
    EXPECT_EQ(inUse->preserve(), 2);
    EXPECT_EQ(inUse->release(), 1);
    pool.reset();
    EXPECT_EQ(destroyed.size(), 8U);
    EXPECT_NE(pool.alloc(packetTypeMedia).get(), nullptr);
}

TEST(PacketPool, DestroysItsFreePacketsAgainstTheOrderOfTheKinds) {
    std::vector<std::string> destroyed;
    MessageCapture capture;
    {
        PacketPool pool;
        for (unsigned const type : {256U, 191U, 0U, 188U, 253U, 251U, 252U}) {
            giveToPool(typeOf(type), pool, destroyed);
        }
        capture.clear();
    }
    EXPECT_THAT(destroyed, ElementsAre("packet header", "internalUmfChunk", "umfFile",
                                       "fieldLocTbl", "EOS", "media", "map"));
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(PacketPool, SilentWithoutALeak) {
    MessageCapture const capture;
    { PacketPool const pool; }
    {
        PacketPool pool;
        std::vector<AutoRefPtr<Packet>> inUse;
        for (unsigned round = 0; round < 3; ++round) {
            for (unsigned const type : kinds) {
                inUse.push_back(pool.alloc(typeOf(type)));
            }
        }
        inUse.clear();
        pool.reset();
        for (unsigned const type : kinds) {
            inUse.push_back(pool.alloc(typeOf(type)));
        }
        EXPECT_NE(pool.alloc(packetTypeMedia).get(), nullptr);
        inUse.clear();
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(PacketPool, TellsOfALeakByKind) {
    struct Row {
        unsigned type;
        char const* kept;
    };
    constexpr Row rows[] = {
        {188, "0 media,1 map,0 eos,0 flt,0 umf,0 hdr, 0 umfChunk\n"},
        {191, "1 media,0 map,0 eos,0 flt,0 umf,0 hdr, 0 umfChunk\n"},
        {251, "0 media,0 map,1 eos,0 flt,0 umf,0 hdr, 0 umfChunk\n"},
        {252, "0 media,0 map,0 eos,1 flt,0 umf,0 hdr, 0 umfChunk\n"},
        {253, "0 media,0 map,0 eos,0 flt,1 umf,0 hdr, 0 umfChunk\n"},
        {0, "0 media,0 map,0 eos,0 flt,0 umf,1 hdr, 0 umfChunk\n"},
        {256, "0 media,0 map,0 eos,0 flt,0 umf,0 hdr, 1 umfChunk\n"},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.type);
        std::vector<std::string> destroyed;
        MessageCapture const capture;
        {
            PacketPool pool;
            leak(pool.alloc(packetTypeEos));
            giveToPool(typeOf(row.type), pool, destroyed);
        }
        EXPECT_THAT(capture.texts(MessageKind::Debug),
                    ElementsAre(std::string("PacketPool: 3 created,1 destroyed,") + row.kept));
        EXPECT_EQ(capture.texts().size(), 1U);
        // The kept ones are destroyed all the same.
        EXPECT_EQ(destroyed.size(), 1U);
    }
}

TEST(PacketPool, LeakMessageCountsAllKindsAndTheDestroyed) {
    std::vector<std::string> destroyed;
    MessageCapture const capture;
    {
        PacketPool pool;
        { AutoRefPtr<Packet> const map = pool.alloc(packetTypeMap); }
        { AutoRefPtr<Packet> const media = pool.alloc(packetTypeMedia); }
        pool.reset();
        leak(pool.alloc(packetTypeMedia));
        leak(pool.alloc(packetTypeMedia));
        for (unsigned const type : {0U, 188U, 191U, 191U, 191U, 251U, 252U, 253U, 256U}) {
            giveToPool(typeOf(type), pool, destroyed);
        }
    }
    EXPECT_THAT(capture.texts(),
                ElementsAre("PacketPool: 14 created,3 destroyed,3 media,1 map,1 eos,1 flt,1 umf,"
                            "1 hdr, 1 umfChunk\n"));
}

TEST(PacketPool, PacketFromASourceCountsAsCreated) {
    MessageCapture const capture;
    {
        PacketPool pool;
        AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
        { UmfPacket::UmfPacketChunk const chunk(*header); }
        leak(header);
    }
    EXPECT_THAT(capture.texts(),
                ElementsAre("PacketPool: 3 created,2 destroyed,0 media,0 map,0 eos,0 flt,0 umf,"
                            "0 hdr, 0 umfChunk\n"));
}

TEST(PacketPool, PacketWithASecondReferenceIsReturnedAllTheSame) {
    PacketPool pool;
    Packet* const free = pool.alloc(packetTypeMap).get();
    MessageCapture capture;
    EXPECT_EQ(free->preserve(), 1);
    capture.clear();
    AutoRefPtr<Packet> const packet = pool.alloc(packetTypeMap);
    EXPECT_EQ(packet.get(), free);
    EXPECT_THAT(capture.texts(MessageKind::Trace), ElementsAre(raised("allocLokd")));
    EXPECT_EQ(free->release(), 1);
}

TEST(PacketPool, FreePacketThatIsReleasedAgainStaysFree) {
    // The slot meets the packet that it holds.
    for (unsigned const type : {0U, 188U, 251U, 252U, 253U, 256U}) {
        PacketPool pool;
        Packet* const free = pool.alloc(typeOf(type)).get();
        MessageCapture const capture;
        EXPECT_EQ(free->preserve(), 1);
        EXPECT_EQ(free->release(), 0);
        EXPECT_EQ(capture.count(MessageKind::Trace), 1U);
        EXPECT_EQ(pool.alloc(typeOf(type)).get(), free);
    }
}

TEST(PacketPool, DestroysReferencedPacketsWithAnError) {
    MessageCapture capture;
    {
        PacketPool pool;
        Packet* const map = pool.alloc(packetTypeMap).get();
        map->preserve();
        capture.clear();
        pool.reset();
        EXPECT_THAT(capture.texts(MessageKind::Trace), ElementsAre(raised("~Packet")));
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(PacketPool, ThrowingResetGivesThePacketBack) {
    std::vector<std::string> destroyed;
    PacketPool pool;
    ToldPacket* const map = giveToPool(packetTypeMap, pool, destroyed);
    map->onReset = [] { throw std::bad_alloc(); };
    EXPECT_THROW(pool.alloc(packetTypeMap), std::bad_alloc);
    EXPECT_THAT(destroyed, IsEmpty());
    map->onReset = nullptr;
    EXPECT_EQ(pool.alloc(packetTypeMap).get(), map);
}

TEST(PacketPool, MediaPacketThatCanNotBeKeptIsDestroyed) {
    MessageCapture const capture;
    {
        PacketPool pool;
        std::vector<AutoRefPtr<Packet>> inUse;
        for (unsigned i = 0; i < 40; ++i) {
            inUse.push_back(pool.alloc(packetTypeMedia));
        }
        std::int64_t const before = liveObjects();
        {
            AllocationLimit const limit(16 * sizeof(void*));
            for (AutoRefPtr<Packet>& packet : inUse) {
                packet = nullptr;
            }
        }
        EXPECT_LT(liveObjects(), before);
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(PacketPool, SteadyStateAllocatesNothing) {
    PacketPool pool;
    Bytes bytes = mediaPacket({}, Bytes().fill(400, 0x5A));
    constexpr unsigned inFlight = 8;
    AutoRefPtr<Packet> media[inFlight];
    auto const readMany = [&] {
        for (unsigned i = 0; i < inFlight; ++i) {
            GxfBuffer buffer = bytes.filledBuffer();
            AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
            ASSERT_TRUE(header->decode(buffer));
            media[i] = header->createActual();
            ASSERT_TRUE(media[i]->decode(buffer));
            ASSERT_TRUE(media[i]->isValid());
        }
        for (AutoRefPtr<Packet>& packet : media) {
            packet = nullptr;
        }
    };
    readMany();
    std::uint64_t const before = allocationCount();
    for (unsigned round = 0; round < 100; ++round) {
        readMany();
    }
    EXPECT_EQ(allocationCount(), before);
}

TEST(PacketPool, HandingOutFreePacketsAllocatesNothing) {
    PacketPool pool;
    auto const useEach = [&] {
        for (unsigned const type : kinds) {
            AutoRefPtr<Packet> const packet = pool.alloc(typeOf(type));
        }
    };
    useEach();
    std::uint64_t const before = allocationCount();
    for (unsigned round = 0; round < 100; ++round) {
        useEach();
    }
    EXPECT_EQ(allocationCount(), before);
}

TEST(PacketPool, LeavesTheErrorNumber) {
    PacketPool pool;
    for (int const error : {0, EINTR, 4711}) {
        errno = error;
        AutoRefPtr<Packet> packet = pool.alloc(packetTypeMedia);
        EXPECT_EQ(errno, error);
        packet = nullptr;
        EXPECT_EQ(errno, error);
        pool.reset();
        EXPECT_EQ(errno, error);
    }
}

TEST(PacketPool, ReleasedOnAnotherThread) {
    MessageCapture const capture;
    {
        PacketPool pool;
        for (unsigned round = 0; round < 50; ++round) {
            std::vector<AutoRefPtr<Packet>> packets;
            std::vector<Packet*> objects;
            for (unsigned i = 0; i < 20; ++i) {
                packets.push_back(pool.alloc(packetTypeMedia));
                packets.back()->length = i;
                objects.push_back(packets.back().get());
            }
            packets.push_back(pool.alloc(packetTypeMap));
            packets.push_back(pool.alloc(packetTypeHeader));
            std::thread([taken = std::move(packets)]() mutable { taken.clear(); }).join();
            EXPECT_EQ(pool.alloc(packetTypeMedia).get(), objects.back());
        }
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(PacketPool, SeveralThreadsAllocateAndRelease) {
    MessageCapture const capture;
    {
        PacketPool pool;
        auto const use = [&pool](unsigned seed) {
            std::minstd_rand random(seed);
            std::vector<AutoRefPtr<Packet>> inUse(12);
            Bytes bytes = mediaPacket({}, Bytes().fill(16));
            for (unsigned i = 0; i < 2000; ++i) {
                AutoRefPtr<Packet>& place = inUse[random() % inUse.size()];
                unsigned const type = kinds[random() % std::size(kinds)];
                place = pool.alloc(typeOf(type));
                place->length = seed;
                if (type == 0) {
                    GxfBuffer buffer = bytes.filledBuffer();
                    place->decode(buffer);
                    place = place->createActual();
                }
                if (i % 500 == 0) {
                    pool.reset();
                }
            }
        };
        std::vector<std::thread> threads;
        for (unsigned seed = 1; seed <= 4; ++seed) {
            threads.emplace_back(use, seed);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(PacketPool, SeveralThreadsHoldOnePacket) {
    MessageCapture const capture;
    {
        PacketPool pool;
        for (unsigned round = 0; round < 100; ++round) {
            AutoRefPtr<Packet> packet = pool.alloc(packetTypeMedia);
            std::vector<std::thread> threads;
            for (unsigned i = 0; i < 3; ++i) {
                threads.emplace_back([mine = AutoRefPtr<Packet>(packet.get())] {
                    for (unsigned copies = 0; copies < 100; ++copies) {
                        AutoRefPtr<Packet> const other(mine.get());
                    }
                });
            }
            // The last reference goes with whichever thread ends last.
            packet = nullptr;
            for (std::thread& thread : threads) {
                thread.join();
            }
        }
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(PacketPool, ReferenceTakenWhileThePacketGoesBackIsReported) {
    std::vector<std::string> destroyed;
    PacketPool pool;
    MessageCapture capture;
    ToldPacket* const eos = giveToPool(packetTypeEos, pool, destroyed);
    ASSERT_EQ(pool.alloc(packetTypeEos)->preserve(), 2);
    ToldPacket* const map = giveToPool(packetTypeMap, pool, destroyed);
    capture.clear();

    // The pool's lock is held during a packet's reset, so that the release below waits for it.
    std::binary_semaphore inReset(0);
    std::binary_semaphore mayGoOn(0);
    map->onReset = [&] {
        inReset.release();
        mayGoOn.acquire();
    };
    std::thread allocating([&pool] { pool.alloc(packetTypeMap); });
    inReset.acquire();
    std::thread releasing([eos] { eos->release(); });
    while (eos->count() != 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(eos->preserve(), 1);
    mayGoOn.release();
    allocating.join();
    releasing.join();
    EXPECT_THAT(capture.texts(MessageKind::Trace),
                ElementsAre(raised("notifyBadCount"), raised("recycle")));

    // It went to the free packets all the same.
    EXPECT_EQ(eos->release(), 0);
    EXPECT_EQ(pool.alloc(packetTypeEos).get(), eos);
    map->onReset = nullptr;
    EXPECT_THAT(destroyed, IsEmpty());
}

TEST(PacketPool, PacketsPassBetweenThreads) {
    MessageCapture const capture;
    {
        PacketPool pool;
        JMutex mutex;
        std::vector<AutoRefPtr<Packet>> queue;
        std::atomic<bool> done{false};
        std::uint64_t sum = 0;
        std::thread consumer([&] {
            for (;;) {
                bool const last = done.load();
                std::vector<AutoRefPtr<Packet>> taken;
                {
                    ScopeLock<JMutex> lock(mutex);
                    taken.swap(queue);
                }
                for (AutoRefPtr<Packet> const& packet : taken) {
                    sum += packet->length;
                }
                if (last && taken.empty()) {
                    return;
                }
                std::this_thread::yield();
            }
        });
        for (unsigned i = 1; i <= 5000; ++i) {
            AutoRefPtr<Packet> packet = pool.alloc(packetTypeMedia);
            packet->length = i;
            ScopeLock<JMutex> lock(mutex);
            queue.push_back(std::move(packet));
        }
        done = true;
        consumer.join();
        EXPECT_EQ(sum, 12502500U);
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(ScopeLock, LeavesTheErrorNumberWhenItGoes) {
    struct LoudMutex {
        void lock() {}
        void unlock() { errno = EIO; }
    };
    LoudMutex mutex;
    errno = ENOENT;
    { ScopeLock<LoudMutex> const lock(mutex); }
    EXPECT_EQ(errno, ENOENT);
}
