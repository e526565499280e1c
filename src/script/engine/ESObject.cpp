#include "script/engine/ESObject.h"

#include "script/engine/ESContext.h"

#include <bit>

namespace {

constexpr quint32 hashedFrom = 8;        // names; fewer are searched one by one
constexpr quint32 mostSharedNames = 128; // an object with more owns its shape
constexpr quint16 mostChildren = 64;     // of a shape: beyond that it is used as a map
constexpr quint32 freeEntry = 0, deletedEntry = 1, firstEntry = 2;
constexpr quint32 densestGap = 64; // how far beyond the last element a new one may lie
constexpr quint32 largestPresized = 1 << 24;

ESElements noElements = {0, 0, 0, {}};

quint32 hashOf(const ESSymbol *name)
{
    const auto address = quintptr(name);
    return quint32((address >> 4) ^ (address >> 13));
}

} // namespace

// ---- Shapes

void ESShape::rehash(ESArena &arena, Table *table)
{
    quint32 live = 0;
    for (quint32 i = 0; i < table->size; ++i)
        live += table->slots[i].name != nullptr;
    quint32 capacity = 32;
    while (capacity < live * 4)
        capacity *= 2;
    if (capacity > table->hashCapacity) {
        table->hash = arena.array<quint32>(capacity);
        table->hashCapacity = capacity;
    }
    std::fill_n(table->hash, table->hashCapacity, freeEntry);
    table->hashUsed = live;
    const quint32 mask = table->hashCapacity - 1;
    for (quint32 i = 0; i < table->size; ++i) {
        if (!table->slots[i].name)
            continue;
        quint32 at = hashOf(table->slots[i].name) & mask;
        while (table->hash[at] != freeEntry)
            at = (at + 1) & mask;
        table->hash[at] = i + firstEntry;
    }
}

void ESShape::append(ESArena &arena, Table *table, ESSymbol *name, quint32 flags)
{
    if (table->size == table->capacity) {
        size_t bytes = std::max(table->capacity * 2, 4u) * sizeof(Slot);
        auto *slots = static_cast<Slot *>(arena.allocateBlock(bytes));
        std::copy_n(table->slots, table->size, slots);
        if (table->capacity)
            arena.releaseBlock(table->slots, table->capacity * sizeof(Slot));
        table->slots = slots;
        table->capacity = quint32(bytes / sizeof(Slot));
    }
    table->slots[table->size++] = {name, flags};
    if (!name || table->size <= hashedFrom)
        return;
    if (!table->hash || (table->hashUsed + 1) * 2 > table->hashCapacity)
        return rehash(arena, table);
    const quint32 mask = table->hashCapacity - 1;
    quint32 at = hashOf(name) & mask;
    while (table->hash[at] >= firstEntry)
        at = (at + 1) & mask;
    table->hashUsed += table->hash[at] == freeEntry;
    table->hash[at] = table->size - 1 + firstEntry;
}

quint32 ESShape::find(ESSymbol *name) const
{
    if (!m_table->hash) {
        for (quint32 i = 0; i < m_count; ++i)
            if (m_table->slots[i].name == name)
                return i;
        return notFound;
    }
    const quint32 mask = m_table->hashCapacity - 1;
    for (quint32 at = hashOf(name) & mask;; at = (at + 1) & mask) {
        const quint32 entry = m_table->hash[at];
        if (entry == freeEntry)
            return notFound;
        if (entry >= firstEntry && m_table->slots[entry - firstEntry].name == name)
            return entry - firstEntry < m_count ? entry - firstEntry : notFound;
    }
}

ESShape *ESShape::child(ESArena &arena, ESSymbol *name, quint32 flags)
{
    for (ESShape *shape = m_firstChild; shape; shape = shape->m_nextSibling)
        if (shape->m_edge.name == name && shape->m_edge.flags == flags)
            return shape;
    if (m_count >= mostSharedNames || m_children >= mostChildren)
        return nullptr;
    ESShape *shape = m_table->size == m_count ? new (arena.allocate(sizeof(ESShape))) ESShape(*this) : copyOwned(arena);
    append(arena, shape->m_table, name, flags);
    shape->m_count = m_count + 1;
    shape->m_shared = true;
    shape->m_children = 0;
    shape->m_firstChild = nullptr;
    shape->m_edge = {name, flags};
    shape->m_nextSibling = m_firstChild;
    m_firstChild = shape;
    ++m_children;
    return shape;
}

ESShape *ESShape::copyOwned(ESArena &arena) const
{
    auto *shape = new (arena.allocate(sizeof(ESShape))) ESShape(*this);
    shape->m_table = arena.make<Table>();
    for (quint32 i = 0; i < m_count; ++i)
        append(arena, shape->m_table, m_table->slots[i].name, m_table->slots[i].flags);
    shape->m_shared = false;
    shape->m_children = 0;
    shape->m_firstChild = nullptr;
    return shape;
}

void ESShape::erase(quint32 slot)
{
    if (m_table->hash) {
        const quint32 mask = m_table->hashCapacity - 1;
        quint32 at = hashOf(m_table->slots[slot].name) & mask;
        while (m_table->hash[at] != slot + firstEntry)
            at = (at + 1) & mask;
        m_table->hash[at] = deletedEntry;
    }
    m_table->slots[slot].name = nullptr;
}

ESShape *ESContext::rootShape(ESObject *prototype, ESClass *esClass)
{
    ESShape *&shape = m_rootShapes[{prototype, esClass}];
    if (!shape) {
        static ESClass base("");
        constexpr int getSlot = 2, putSlot = 3;
        shape = m_arena.make<ESShape>();
        shape->m_prototype = prototype;
        shape->m_class = esClass;
        shape->m_table = m_arena.make<ESShape::Table>();
        shape->m_shared = true;
        shape->m_plainGet = esVirtualOperation(esClass, getSlot) == esVirtualOperation(&base, getSlot);
        shape->m_plainPut = esVirtualOperation(esClass, putSlot) == esVirtualOperation(&base, putSlot);
        shape->m_isArray = esClass == m_classes.array;
        if (prototype && !prototype->m_isPrototype) {
            prototype->m_isPrototype = true;
            ++m_prototypeEpoch;
        }
    }
    return shape;
}

// ---- Raw access

const ESValue *ESObject::find(quint32 index) const
{
    if (index < m_elements->size)
        return m_elements->values[index].type == esAbsent ? nullptr : &m_elements->values[index];
    if (!m_hasSparse)
        return nullptr;
    const quint32 slot = m_shape->find(esSymbolOf(index));
    return slot == ESShape::notFound ? nullptr : &m_slots[slot];
}

const ESValue *ESObject::find(ESSymbol *name) const
{
    if (name->index() != ESSymbol::noIndex)
        return find(name->index());
    const quint32 slot = m_shape->find(name);
    return slot == ESShape::notFound ? nullptr : &m_slots[slot];
}

quint32 ESObject::flagsOf(ESSymbol *name) const
{
    const quint32 slot = m_shape->find(name);
    return slot == ESShape::notFound ? 0 : m_shape->slot(slot).flags;
}

// ---- Making objects

ESObject *ESContext::allocateObject(ESShape *shape, quint32 capacity)
{
    auto *object = static_cast<ESObject *>(m_arena.allocate(sizeof(ESObject) + capacity * sizeof(ESValue)));
    object->m_shape = shape;
    object->m_slots = reinterpret_cast<ESValue *>(object + 1);
    object->m_elements = &noElements;
    object->m_extra = nullptr;
    object->m_capacity = capacity;
    object->m_isPrototype = object->m_hasSparse = false;
    return object;
}

ESObjectExtra *ESContext::extraOf(ESObject *object)
{
    if (!object->m_extra)
        object->m_extra = m_arena.make<ESObjectExtra>();
    return object->m_extra;
}

ESObject *ESContext::makeObject(ESObject *prototype, ESClass *esClass)
{
    if (esClass == m_classes.array) {
        ESObject *array = allocateObject(rootShape(prototype, esClass), 1);
        addProperty(array, esNames().length, esDontEnumerate | esDontDelete, 0);
        return array;
    }
    return allocateObject(rootShape(prototype, esClass), 4);
}

ESObject *ESContext::makeWrapper(ESObject *prototype, ESClass *esClass, ESValue primitive)
{
    ESObject *object = allocateObject(rootShape(prototype, esClass), 0);
    extraOf(object)->primitive = primitive;
    return object;
}

ESObject *ESContext::makeArray(quint32 length)
{
    ESObject *array = allocateObject(m_arrayShape, 1);
    array->m_slots[0] = length;
    return array;
}

ESObject *ESContext::makeArray(std::span<const ESValue> elements)
{
    const auto length = quint32(elements.size());
    ESObject *array = makeArray(length);
    if (length) {
        if (growElements(array, length - 1))
            std::copy(elements.begin(), elements.end(), array->m_elements->values);
        else
            for (quint32 i = 0; i < length; ++i)
                putElement(array, i, elements[i]);
    }
    return array;
}

// ---- Named properties

void ESContext::growSlots(ESObject *object, quint32 capacity)
{
    size_t bytes = capacity * sizeof(ESValue);
    auto *values = static_cast<ESValue *>(m_arena.allocateBlock(bytes));
    std::copy_n(object->m_slots, object->m_shape->slotCount(), values);
    if (object->m_slots != reinterpret_cast<ESValue *>(object + 1))
        m_arena.releaseBlock(object->m_slots, object->m_capacity * sizeof(ESValue));
    object->m_slots = values;
    object->m_capacity = quint32(bytes / sizeof(ESValue));
}

void ESContext::addProperty(ESObject *object, ESSymbol *name, quint32 flags, ESValue value)
{
    const quint32 slot = object->m_shape->slotCount();
    if (slot == object->m_capacity)
        growSlots(object, std::max(4u, slot * 2));
    if (object->m_shape->isShared()) {
        ESShape *next = object->m_shape->child(m_arena, name, flags);
        object->m_shape = next ? next : object->m_shape->copyOwned(m_arena);
    }
    if (!object->m_shape->isShared()) {
        ESShape::append(m_arena, object->m_shape->m_table, name, flags);
        ++object->m_shape->m_count;
    }
    object->m_slots[slot] = value;
    m_prototypeEpoch += object->m_isPrototype;
}

ESValue ESContext::ordinaryGet(ESObject *object, ESSymbol *name)
{
    for (; object; object = object->prototype())
        if (const ESValue *value = object->find(name))
            return *value;
    return {};
}

void ESContext::ordinaryPut(ESObject *object, ESSymbol *name, ESValue value)
{
    if (name->index() != ESSymbol::noIndex)
        return putElement(object, name->index(), value);
    const quint32 slot = object->m_shape->find(name);
    if (slot == ESShape::notFound)
        return addProperty(object, name, 0, value);
    if (!(object->m_shape->slot(slot).flags & esReadOnly))
        object->m_slots[slot] = value;
}

ESValue ESContext::get(ESObject *object, ESSymbol *name)
{
    return object->m_shape->isPlainGet() ? ordinaryGet(object, name) : object->esClass()->get(*this, object, name);
}

void ESContext::put(ESObject *object, ESSymbol *name, ESValue value)
{
    if (object->m_shape->isPlainPut())
        ordinaryPut(object, name, value);
    else
        object->esClass()->put(*this, object, name, value);
}

void ESContext::defineProperty(ESObject *object, quint32 flags, ESSymbol *name, ESValue value)
{
    if (name->index() != ESSymbol::noIndex) {
        if (flags == 0 || name->index() < object->m_elements->size)
            return putElement(object, name->index(), value);
        object->m_hasSparse = true;
    }
    const quint32 slot = object->m_shape->find(name);
    if (slot == ESShape::notFound)
        return addProperty(object, name, flags, value);
    object->m_slots[slot] = value;
    if (object->m_shape->slot(slot).flags == flags)
        return;
    if (object->m_shape->isShared())
        object->m_shape = object->m_shape->copyOwned(m_arena);
    object->m_shape->m_table->slots[slot].flags = flags;
    m_prototypeEpoch += object->m_isPrototype;
}

bool ESContext::hasProperty(const ESObject *object, ESSymbol *name) const
{
    for (; object; object = object->prototype())
        if (object->find(name))
            return true;
    return false;
}

bool ESContext::deleteProperty(ESObject *object, ESSymbol *name)
{
    if (name->index() < object->m_elements->size)
        return deleteProperty(object, name->index());
    const quint32 slot = object->m_shape->find(name);
    if (slot == ESShape::notFound)
        return true;
    if (object->m_shape->slot(slot).flags & esDontDelete)
        return false;
    if (object->m_shape->isShared())
        object->m_shape = object->m_shape->copyOwned(m_arena);
    object->m_shape->erase(slot);
    object->m_slots[slot] = {};
    m_prototypeEpoch += object->m_isPrototype;
    return true;
}

// ---- Numbered properties

bool ESContext::growElements(ESObject *object, quint32 index)
{
    ESElements *elements = object->m_elements;
    const bool presized = object->isArray() && index < largestPresized && index < arrayLength(object);
    const bool isPlain = object->m_shape->isPlainGet() && (object->m_shape->isPlainPut() || object->isArray());
    if (!isPlain || object->m_hasSparse || (!presized && index > quint64(elements->size) * 2 + densestGap))
        return false;
    const quint32 dropped = elements->dropped;
    if (index >= elements->capacity && dropped) { // the values move back to the start of their block
        ESElements *start = elements - dropped;
        std::memmove(start, elements, sizeof(ESElements) + elements->size * sizeof(ESValue));
        object->m_elements = elements = start;
        elements->capacity += dropped;
        elements->dropped = 0;
    }
    if (index >= elements->capacity || (dropped && elements->dropped == 0 && dropped < elements->size / 2)) {
        const quint32 size = elements->size;
        const quint32 capacity = std::max(index, elements->capacity) + 1;
        size_t bytes = sizeof(ESElements) + capacity * sizeof(ESValue);
        void *larger =
            elements->capacity
                ? m_arena.growBlock(elements, std::bit_ceil(sizeof(ESElements) + elements->capacity * sizeof(ESValue)),
                                    bytes)
                : m_arena.allocateBlock(bytes);
        object->m_elements = elements = static_cast<ESElements *>(larger);
        elements->size = size;
        elements->capacity = quint32((bytes - sizeof(ESElements)) / sizeof(ESValue));
        elements->dropped = 0;
    }
    for (quint32 i = elements->size; i <= index; ++i)
        elements->values[i].type = esAbsent;
    elements->size = index + 1;
    return true;
}

void ESContext::dropFirstElement(ESObject *object)
{
    ESElements *elements = object->m_elements;
    ESElements moved = *elements;
    --moved.size;
    --moved.capacity;
    ++moved.dropped;
    object->m_elements = elements + 1;
    std::memcpy(static_cast<void *>(object->m_elements), &moved, sizeof moved);
}

void ESContext::putElement(ESObject *object, quint32 index, ESValue value)
{
    if (index >= object->m_elements->size && (object->m_hasSparse || !growElements(object, index))) {
        ESSymbol *name = esSymbolOf(index);
        const quint32 slot = object->m_shape->find(name);
        object->m_hasSparse = true;
        if (slot == ESShape::notFound)
            addProperty(object, name, 0, value);
        else if (!(object->m_shape->slot(slot).flags & esReadOnly))
            object->m_slots[slot] = value;
    } else {
        m_prototypeEpoch += object->m_isPrototype;
        object->m_elements->values[index] = value;
    }
    if (object->isArray() && index >= arrayLength(object))
        object->m_slots[0] = index + 1;
}

ESValue ESContext::get(ESObject *object, quint32 index)
{
    if (index < object->m_elements->size && object->m_elements->values[index].type != esAbsent &&
        object->m_shape->isPlainGet())
        return object->m_elements->values[index];
    if (!object->m_shape->isPlainGet())
        return object->esClass()->get(*this, object, esSymbolOf(index));
    for (; object; object = object->prototype())
        if (const ESValue *value = object->find(index))
            return *value;
    return {};
}

void ESContext::put(ESObject *object, quint32 index, ESValue value)
{
    if (object->m_shape->isPlainPut() || object->isArray())
        putElement(object, index, value);
    else
        object->esClass()->put(*this, object, esSymbolOf(index), value);
}

bool ESContext::deleteProperty(ESObject *object, quint32 index)
{
    ESElements *elements = object->m_elements;
    if (index >= elements->size)
        return !object->m_hasSparse || deleteProperty(object, esSymbolOf(index));
    elements->values[index].type = esAbsent;
    while (elements->size && elements->values[elements->size - 1].type == esAbsent)
        --elements->size;
    return true;
}

void ESContext::setArrayLength(ESObject *array, quint32 length)
{
    if (length < arrayLength(array)) {
        array->m_elements->size = std::min(array->m_elements->size, length);
        for (quint32 i = 0; array->m_hasSparse && i < array->m_shape->slotCount(); ++i)
            if (ESSymbol *name = array->m_shape->slot(i).name;
                name && name->index() != ESSymbol::noIndex && name->index() >= length)
                deleteProperty(array, name);
    }
    array->m_slots[0] = length;
}
