#pragma once

namespace Zorvan {

/// The links of a doubly linked list.
struct DLinkNodeBase {
    DLinkNodeBase* previous = nullptr;
    DLinkNodeBase* next = nullptr;
};

/// A list node that is embedded in its owner.
template <typename T> struct DLinkNode : DLinkNodeBase {
    explicit DLinkNode(T& object) : owner(&object) {}

    T* owner;
};

} // namespace Zorvan
