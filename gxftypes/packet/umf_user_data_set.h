#pragma once

#include <set>
#include <utility>

#include <gxftypes/packet/umf_user_data.h>

namespace GxfTypes {

/// A key item and a value item with the same id; either may be missing. Assignment moves the items.
struct UmfUserDataPair {
    UmfUserDataPair() = default;
    /// Takes ownership of both.
    UmfUserDataPair(UmfUserDataKey* key, UmfUserData* value) : keyItem(key), valueItem(value) {}
    /// Whatever is no key goes into the value's place.
    explicit UmfUserDataPair(AutoPtr<UmfUserData> item);

    bool canPairWith(UmfUserData const& item) const;
    /// Takes the item in. Code 7 when its place isn't free.
    OpResult join(AutoPtr<UmfUserData> item);
    /// A deep copy, which the caller owns.
    AutoPtr<UmfUserDataPair> clone() const;
    /// The key of the key item, else of the value item, else the key of nothing.
    UmfKey getPairKey() const;
    /// The name of a complete pair; "" for any other.
    char const* getKey() const;
    bool isComplete() const { return keyItem.get() != nullptr && valueItem.get() != nullptr; }
    /// Bytes on the wire.
    unsigned size() const;
    OpResult encode(GxfBuffer& buffer) const;
    bool isEqual(UmfUserDataPair const& other) const;
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    AutoPtr<UmfUserDataKey> keyItem;
    AutoPtr<UmfUserData> valueItem;
};

/// The user data of a UMF: pairs in order of arrival, and the ids in use.
/// REQUIRES: whoever changes the two directly keeps the id of each pair in use.
class UmfUserDataSet {
  public:
    UmfUserDataSet() : keyIdsInUse(idCount, false) {}
    UmfUserDataSet(UmfUserDataSet const&) = delete;
    UmfUserDataSet& operator=(UmfUserDataSet const&) = delete;

    /// Adds a pair with the lowest free id; the bytes are copied. Code 7 without a name or bytes.
    OpResult addUserData(char const* name, UmfTrackNum track, UmfUserDataType type,
                         unsigned char const* bytes, unsigned n);
    /// Takes in an item: into the first pair that waits for it, else into a new one. Code 7 for
    /// null.
    OpResult addUserData(AutoPtr<UmfUserData> item);
    /// Takes in a pair. Code 7 for null.
    OpResult addUserData(AutoPtr<UmfUserDataPair> pair);
    /// Removes the first complete pair of that name. Always a success.
    OpResult removeUserData(char const* name);

    /// Marks an id; one that is in use already is told by a warning message.
    void addKey(UmfKey const& key);
    /// Frees an id; one that isn't in use is told by a warning message.
    void removeKey(UmfKey const& key);
    /// The first pair that waits for the item, which stays the set's; null without one.
    UmfUserDataPair* findPair(UmfUserData const& item) const;
    /// The lowest free id; 65535 when all are in use.
    unsigned short getNextKeyId() const;

    /// Code 7, or the failure of a pair, with the pairs so far in place.
    OpResult copy(UmfUserDataSet const& other);
    void reset();
    OpResult encode(GxfBuffer& buffer) const;
    /// The same pairs in the same order.
    bool isEqual(UmfUserDataSet const& other) const;
    unsigned nItems() const { return pairs.size(); }
    /// Bytes on the wire.
    unsigned size() const;
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    FixedMinVector<UmfUserDataPair, 32U> pairs;
    Bitset keyIdsInUse;

  private:
    static constexpr unsigned idCount = 65535;

    void unmark(UmfKey const& key);

    /// False once a pair may wait for an item with an id that isn't in use.
    bool m_openPairsAreMarked = true;
};

/// Takes in a run of items as UmfUserDataSet::addUserData() does, and keeps the pairs that wait by
/// id meanwhile, so that a set of millions isn't searched for each item of a hostile run.
/// REQUIRES: nobody else changes the set's pairs while this object lives.
class UmfUserDataRun {
  public:
    explicit UmfUserDataRun(UmfUserDataSet& set);
    UmfUserDataRun(UmfUserDataRun const&) = delete;
    UmfUserDataRun& operator=(UmfUserDataRun const&) = delete;

    /// Code 7 for null.
    OpResult add(AutoPtr<UmfUserData> item);

  private:
    using OpenPairs = std::set<std::pair<unsigned, unsigned>>; ///< ids and places

    void noteOpenPair(unsigned place);

    UmfUserDataSet& m_set;
    OpenPairs m_withoutKey;
    OpenPairs m_withoutValue;
};

} // namespace GxfTypes
