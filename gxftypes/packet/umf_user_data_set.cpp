#include <gxftypes/packet/umf_user_data_set.h>

#include <cstring>

namespace GxfTypes {

namespace {

/// A plain item of the kind key becomes a key without texts.
AutoPtr<UmfUserDataKey> takeKey(AutoPtr<UmfUserData> const& item) {
    if (auto* const key = dynamic_cast<UmfUserDataKey*>(item.get())) {
        item.forget();
        return AutoPtr<UmfUserDataKey>(key);
    }
    AutoPtr<UmfUserDataKey> key(new UmfUserDataKey);
    key->move(*item);
    return key;
}

} // namespace

UmfUserDataPair::UmfUserDataPair(AutoPtr<UmfUserData> item) {
    if (item->isKey()) {
        keyItem = takeKey(item);
    } else {
        valueItem = item;
    }
}

bool UmfUserDataPair::canPairWith(UmfUserData const& item) const {
    if (item.isKey()) {
        return keyItem.get() == nullptr && valueItem.get() != nullptr &&
               valueItem->getId() == item.getId();
    }
    return item.isValue() && valueItem.get() == nullptr && keyItem.get() != nullptr &&
           keyItem->getId() == item.getId();
}

OpResult UmfUserDataPair::join(AutoPtr<UmfUserData> item) {
    bool const isTaken = item->isKey() ? keyItem.get() != nullptr : valueItem.get() != nullptr;
    if (isComplete() || isTaken) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    if (item->isKey()) {
        keyItem = takeKey(item);
    } else {
        valueItem = item;
    }
    return OpResult::Ok;
}

AutoPtr<UmfUserDataPair> UmfUserDataPair::clone() const {
    AutoPtr<UmfUserDataPair> copy(new UmfUserDataPair);
    if (keyItem.get() != nullptr) {
        copy->keyItem = new UmfUserDataKey(*keyItem);
    }
    if (valueItem.get() != nullptr) {
        copy->valueItem = new UmfUserData(*valueItem);
    }
    return copy;
}

UmfKey UmfUserDataPair::getPairKey() const {
    if (keyItem.get() != nullptr) {
        return keyItem->getKey();
    }
    return valueItem.get() != nullptr ? valueItem->getKey() : UmfKey();
}

char const* UmfUserDataPair::getKey() const { return isComplete() ? keyItem->getName() : ""; }

unsigned UmfUserDataPair::size() const {
    unsigned const keySize = keyItem.get() != nullptr ? keyItem->getLength() : 0;
    unsigned const valueSize = valueItem.get() != nullptr ? valueItem->getLength() : 0;
    return keySize + valueSize;
}

OpResult UmfUserDataPair::encode(GxfBuffer& buffer) const {
    OpResult result;
    if (keyItem.get() != nullptr) {
        result = keyItem->encode(buffer);
    }
    if (result && valueItem.get() != nullptr) {
        result = valueItem->encode(buffer);
    }
    return result;
}

bool UmfUserDataPair::isEqual(UmfUserDataPair const& other) const {
    auto const equal = [](UmfUserData const* a, UmfUserData const* b) {
        return a == nullptr || b == nullptr ? a == b : a->isEqual(*b);
    };
    return equal(keyItem.get(), other.keyItem.get()) &&
           equal(valueItem.get(), other.valueItem.get());
}

FormatStr& UmfUserDataPair::toString(unsigned indent, FormatStr& text) const {
    if (keyItem.get() != nullptr) {
        keyItem->toString(indent, text).cat("\n");
    }
    if (valueItem.get() != nullptr) {
        valueItem->toString(indent, text).cat("\n");
    }
    return text;
}

OpResult UmfUserDataSet::addUserData(char const* name, UmfTrackNum track, UmfUserDataType type,
                                     unsigned char const* bytes, unsigned n) {
    if (name == nullptr || bytes == nullptr) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    unsigned short const id = getNextKeyId();
    AutoPtr<UmfUserDataKey> const key(
        new UmfUserDataKey(name, UmfKey(UmfKey::key, id), track, type, n));
    AutoPtr<UmfUserData> const value(new UmfUserData(UmfKey(UmfKey::value, id), track, bytes, n));
    if (m_openPairsAreMarked && id < idCount) {
        // No pair waits with a free id: the key opens a new one, and the value joins it.
        addKey(key->getKey());
        pairs.push_back(UmfUserDataPair(key.forget(), value.forget()));
        return OpResult::Ok;
    }
    OpResult const result = addUserData(AutoPtr<UmfUserData>(key.forget()));
    return result ? addUserData(value) : result;
}

OpResult UmfUserDataSet::addUserData(AutoPtr<UmfUserData> item) {
    if (item.get() == nullptr) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    if (UmfUserDataPair* const pair = findPair(*item)) {
        return pair->join(item);
    }
    addKey(item->getKey());
    pairs.push_back(UmfUserDataPair(item));
    return OpResult::Ok;
}

OpResult UmfUserDataSet::addUserData(AutoPtr<UmfUserDataPair> pair) {
    if (pair.get() == nullptr) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    addKey(pair->getPairKey());
    pairs.push_back(*pair);
    return OpResult::Ok;
}

OpResult UmfUserDataSet::removeUserData(char const* name) {
    for (unsigned i = 0; i < pairs.size() && name != nullptr; ++i) {
        if (pairs[i].isComplete() && std::strcmp(pairs[i].getKey(), name) == 0) {
            unmark(pairs[i].getPairKey());
            pairs.erase(i);
            break;
        }
    }
    return OpResult::Ok;
}

void UmfUserDataSet::addKey(UmfKey const& key) {
    if (!key.isKeyValuePair()) {
        m_openPairsAreMarked = false;
        return;
    }
    // The last id lies behind the last of the bits, in the byte that they share: intended.
    if (keyIdsInUse.get(key.getId())) {
        m_openPairsAreMarked = false;
        warningMsg("GxfKey(%s) is already in use\n", key.toString().get());
    }
    keyIdsInUse.set(key.getId());
}

void UmfUserDataSet::removeKey(UmfKey const& key) {
    m_openPairsAreMarked = false;
    unmark(key);
}

void UmfUserDataSet::unmark(UmfKey const& key) {
    if (!key.isKeyValuePair()) {
        return;
    }
    if (!keyIdsInUse.get(key.getId())) {
        warningMsg("GxfKey(%s) is not in use\n", key.toString().get());
    }
    keyIdsInUse.clear(key.getId());
}

UmfUserDataPair* UmfUserDataSet::findPair(UmfUserData const& item) const {
    for (unsigned i = 0; i < pairs.size(); ++i) {
        if (!pairs[i].isComplete() && pairs[i].canPairWith(item)) {
            return const_cast<UmfUserDataPair*>(&pairs[i]);
        }
    }
    return nullptr;
}

unsigned short UmfUserDataSet::getNextKeyId() const {
    return static_cast<unsigned short>(keyIdsInUse.findFirstClear());
}

OpResult UmfUserDataSet::copy(UmfUserDataSet const& other) {
    if (this == &other) {
        return OpResult::Ok;
    }
    reset();
    for (unsigned i = 0; i < other.pairs.size(); ++i) {
        OpResult const result = addUserData(other.pairs[i].clone());
        if (!result) {
            return result;
        }
    }
    return OpResult::Ok;
}

void UmfUserDataSet::reset() {
    pairs.reset();
    keyIdsInUse.clearAll();
    m_openPairsAreMarked = true;
}

OpResult UmfUserDataSet::encode(GxfBuffer& buffer) const {
    for (unsigned i = 0; i < pairs.size(); ++i) {
        OpResult const result = pairs[i].encode(buffer);
        if (!result) {
            return result;
        }
    }
    return OpResult::Ok;
}

bool UmfUserDataSet::isEqual(UmfUserDataSet const& other) const {
    if (pairs.size() != other.pairs.size()) {
        return false;
    }
    for (unsigned i = 0; i < pairs.size(); ++i) {
        if (!pairs[i].isEqual(other.pairs[i])) {
            return false;
        }
    }
    return true;
}

unsigned UmfUserDataSet::size() const {
    unsigned bytes = 0;
    for (unsigned i = 0; i < pairs.size(); ++i) {
        bytes += pairs[i].size();
    }
    return bytes;
}

FormatStr& UmfUserDataSet::toString(unsigned indent, FormatStr& text) const {
    for (unsigned i = 0; i < pairs.size(); ++i) {
        text.format("[%u]=", i);
        pairs[i].toString(indent, text).cat("\n");
    }
    return text;
}

UmfUserDataRun::UmfUserDataRun(UmfUserDataSet& set) : m_set(set) {
    for (unsigned i = 0; i < set.pairs.size(); ++i) {
        noteOpenPair(i);
    }
}

OpResult UmfUserDataRun::add(AutoPtr<UmfUserData> item) {
    if (item.get() == nullptr) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    if (item->getKey().isKeyValuePair()) {
        OpenPairs& waiting = item->isKey() ? m_withoutKey : m_withoutValue;
        auto const first = waiting.lower_bound({item->getId(), 0});
        if (first != waiting.end() && first->first == item->getId()) {
            unsigned const place = first->second;
            waiting.erase(first);
            return m_set.pairs[place].join(item);
        }
    }
    m_set.addKey(item->getKey());
    m_set.pairs.push_back(UmfUserDataPair(item));
    noteOpenPair(m_set.pairs.size() - 1);
    return OpResult::Ok;
}

void UmfUserDataRun::noteOpenPair(unsigned place) {
    UmfUserDataPair const& pair = m_set.pairs[place];
    if (pair.keyItem.get() != nullptr && pair.valueItem.get() == nullptr) {
        m_withoutValue.emplace(pair.keyItem->getId(), place);
    } else if (pair.keyItem.get() == nullptr && pair.valueItem.get() != nullptr) {
        m_withoutKey.emplace(pair.valueItem->getId(), place);
    }
}

} // namespace GxfTypes
