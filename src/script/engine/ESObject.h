#pragma once

#include "script/engine/ESValue.h"

class ESArena;
class ESClass;
class ESCode;
struct ESProgram;
class ESContext;
struct ESCall;
class ESShape;

// Flags of a property.
enum ESPropertyFlag : quint32 {
    esReadOnly = 1, // a put is ignored without a word
    esDontEnumerate = 2,
    esDontDelete = 4, // delete answers false
    esParameter = 8,  // in the name tables of code
};

// A native function: arguments come with the call, missing ones up to the arity as undefined.
using ESNative = ESValue (*)(ESContext &context, const ESCall &call);

// One link of a scope chain: a `with` object or the activation of a function.
struct ESScopeNode
{
    ESScopeNode *next;
    ESObject *object;
};

// What makes a function object run: its code with the scope where it was made. For native ones both are null.
struct ESClosure
{
    quint32 parameterCount = 0;
    quint32 localCount = 0;
    ESCode *code = nullptr;
    ESScopeNode *scope = nullptr;
};

// What only some objects have: wrappers their primitive, functions what calling them means.
struct ESObjectExtra
{
    ESValue primitive;                // of a wrapper; of functions and the global object their printable name
    ESClosure *call = nullptr;        // null: can't be called
    ESClosure *construct = nullptr;   // null: `new` refuses it
    int nativeId = -1;                // -1 a script function; else what the class's call hook goes by
    ESNative native = nullptr;        // called in place of the hook
    ESProgram *program = nullptr;     // of a script function that ran
    ESShape *instanceShape = nullptr; // of what `new` makes, and how many slots it came to have
    quint32 instanceSlots = 2;
};

// The numbered properties of an object, without gaps but for esAbsent values.
struct ESElements
{
    quint32 size;
    quint32 capacity;
    quint32 dropped; // values between the start of the block and here, see ESContext::dropFirstElement()
    ESValue values[];
};
static_assert(sizeof(ESElements) == sizeof(ESValue));

// The record behind every object of a script: shape (names, prototype, class) and values. Objects are made
// by a context and live as long as it does. Properties keep the order in which they were created; those named
// by small numbers stand apart in `elements`, in the order of the numbers.
//
// The operations here are the raw ones, without the class's hooks: scripts and natives go through ESContext.
class ESObject
{
public:
    ESObject *prototype() const;
    ESClass *esClass() const;

    ESValue primitive() const { return m_extra ? m_extra->primitive : ESValue(); }
    bool isCallable() const { return m_extra && m_extra->call; }
    bool isConstructor() const { return m_extra && m_extra->construct; }
    bool isArray() const; // class Array: `length` follows its elements

    // The own value under a name or number; null when it isn't there. The pointer is good until a property
    // is added or deleted.
    ESValue *find(ESSymbol *name) { return const_cast<ESValue *>(std::as_const(*this).find(name)); }
    const ESValue *find(ESSymbol *name) const;
    const ESValue *find(quint32 index) const;
    quint32 flagsOf(ESSymbol *name) const; // 0 when it isn't there

    ESSymbol *slotName(quint32 slot) const; // of the named property made as number `slot`; null if it is gone

    // The own properties that are there: `name, flags, value` in their order of creation, then the numbered ones.
    template <typename Visit>
    void forEachProperty(Visit visit) const;

private:
    friend class ESContext;
    friend class ESInterpreter;
    friend class ESShape;
    friend class ESNativeArray;

    ESShape *m_shape = nullptr;
    ESValue *m_slots = nullptr; // m_shape->slotCount() values, room for m_capacity
    ESElements *m_elements;     // never null
    ESObjectExtra *m_extra = nullptr;
    quint32 m_capacity = 0;
    bool m_isPrototype = false; // of some other object: what is cached about it depends on the epoch
    bool m_hasSparse = false;   // some numbered properties stand among the named ones
};

// The names, prototype and class that objects share which got the same properties in the same order: a tree
// whose edges add one property. An object from which one was deleted, or with very many, owns its shape.
class ESShape
{
public:
    struct Slot
    {
        ESSymbol *name; // null: deleted, or one of no name
        quint32 flags;
    };
    static constexpr quint32 notFound = 0xFFFFFFFF;

    ESObject *prototype() const { return m_prototype; }
    ESClass *esClass() const { return m_class; }
    quint32 slotCount() const { return m_count; }
    const Slot &slot(quint32 i) const { return m_table->slots[i]; }
    quint32 find(ESSymbol *name) const; // its slot or notFound
    bool isShared() const { return m_shared; }
    bool isPlainGet() const { return m_plainGet; } // the class doesn't override `get`
    bool isPlainPut() const { return m_plainPut; }
    bool isArray() const { return m_isArray; }

private:
    friend class ESObject;
    friend class ESContext;
    friend class ESInterpreter;

    // One list of names for a whole line of descent; a shape sees the first m_count of them. From the ninth
    // name on there is a hash of slot numbers plus 2 (0 free, 1 deleted).
    struct Table
    {
        Slot *slots;
        quint32 size, capacity;
        quint32 *hash;
        quint32 hashCapacity, hashUsed;
    };
    static void append(ESArena &arena, Table *table, ESSymbol *name, quint32 flags);
    static void rehash(ESArena &arena, Table *table);
    ESShape *child(ESArena &arena, ESSymbol *name, quint32 flags); // null: there are too many
    ESShape *copyOwned(ESArena &arena) const;
    void erase(quint32 slot);

    ESObject *m_prototype;
    ESClass *m_class;
    Table *m_table;
    quint32 m_count;
    bool m_shared, m_plainGet, m_plainPut, m_isArray;
    quint16 m_children = 0;
    ESShape *m_firstChild = nullptr, *m_nextSibling = nullptr;
    Slot m_edge{}; // what it adds to its parent
};

// The function behind a virtual operation of an object, as this platform's C++ ABI lays out its table: the
// destructors are 0 and 1. Tells whether a subclass overrides it.
inline const void *esVirtualOperation(const void *object, int slot)
{
    return (*static_cast<const void *const *const *>(object))[slot];
}

inline ESSymbol *ESObject::slotName(quint32 slot) const
{
    return m_shape->slot(slot).name;
}
inline ESObject *ESObject::prototype() const
{
    return m_shape->prototype();
}
inline ESClass *ESObject::esClass() const
{
    return m_shape->esClass();
}
inline bool ESObject::isArray() const
{
    return m_shape->isArray();
}

template <typename Visit>
void ESObject::forEachProperty(Visit visit) const
{
    for (quint32 i = 0; i < m_shape->slotCount(); ++i)
        if (const ESShape::Slot slot = m_shape->slot(i); slot.name)
            visit(slot.name, slot.flags, m_slots[i]);
    for (quint32 i = 0; i < m_elements->size; ++i)
        if (m_elements->values[i].type != esAbsent)
            visit(esSymbolOf(i), 0u, m_elements->values[i]);
}
