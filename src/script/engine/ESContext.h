#pragma once

#include "script/engine/ESArena.h"
#include "script/engine/ESClass.h"
#include "script/engine/ESException.h"

#include <QStringList>
#include <functional>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

class ESCode;
class ESInterpreter;
struct ESFrame;
struct ESHandler;
struct ESTree;
class ESParser;
struct ESFunctionNode;
struct ESSource;

enum class ESErrorKind { Error, EvalError, RangeError, ReferenceError, SyntaxError, TypeError };
constexpr int esErrorKinds = 6;

// What an evaluation came to.
struct ESCompletion
{
    enum Kind { Normal = 0, Exception = 4 };
    Kind kind = Normal;
    ESValue value; // of the last statement, or what was thrown
    QString text;  // of an exception: its message
};

// Which of its two forms toPrimitive asks an object for first.
enum class ESHint { Number = 3, String = 4, Default = 6 };

// An execution context: global object, memory and the interpreter's state. Scripts evaluated in it one after
// the other see each other's variables. It belongs to one thread at a time, and nothing is freed before it ends.
//
// Operations on values may run script code (toString, valueOf) and so may throw ESException.
class ESContext
{
public:
    static constexpr quint64 defaultMemoryLimit = quint64(1) << 30;
    static constexpr quint32 stackValues = 0x100000;

    explicit ESContext(quint64 memoryLimitBytes = defaultMemoryLimit);
    virtual ~ESContext();
    ESContext(const ESContext &) = delete;
    ESContext &operator=(const ESContext &) = delete;

    // Runs before each instruction if a subclass overrides it, and costs nothing if none does. False ends the
    // present run at once, without an exception and with no value.
    virtual bool step() { return true; }

    // Running scripts. What a script throws comes back in the completion; ESFatalError and HException pass.
    ESCompletion evaluate(const QString &fileName, const QString &source);
    // Compiles only: the bytecode of the program and of its functions, as text. Throws ESException.
    QString list(const QString &fileName, const QString &source);
    // The file under that name, or behind a search path; false if none can be opened. Throws what it throws.
    bool load(const QString &name);
    void addSearchPath(const QString &folder) { m_searchPaths += folder; }
    // What the `Function` constructor does: parameter names parted by commas, and a body.
    ESObject *compileFunction(const QString &parameters, const QString &body);
    // What the compiler noticed and let pass: "file:line: text". Emptied by the taker.
    QStringList takeWarnings() { return std::exchange(m_warnings, {}); }

    // Calls from native code. The arguments may lie anywhere but in memory that the call frees.
    ESValue call(ESObject *function, ESValue self, std::span<const ESValue> arguments);
    ESObject *construct(ESObject *constructor, std::span<const ESValue> arguments);
    [[noreturn]] void raise(ESErrorKind kind, const QString &message);
    [[noreturn]] void raise(ESErrorKind kind, const char *latin1);
    [[noreturn]] void fatal(const char *latin1);
    // Gives an error object `fileName`, `lineNumber`, `sourceLine` and `stack` of this moment, as raise does.
    void describePosition(ESObject *error);
    // The same for what a script throws, unless it is no error or has a position.
    void describeThrown(const ESValue &thrown);
    bool isError(ESValue value) const; // has Error.prototype on its chain
    QString fileName() const;          // of the present evaluation
    int currentLine() const;           // of the innermost script function that runs, 0 for none
    QString place() const;             // "file:line" of the same, a line feed and the line itself; empty for none
    QString stackTrace() const;        // "function (file:line)", a line a frame, innermost first

    // Conversions.
    bool toBoolean(const ESValue &value);
    double toNumber(const ESValue &value) { return value.isNumber() ? value.number : toNumberSlow(value); }
    double toInteger(const ESValue &value);
    qint32 toInt32(const ESValue &value) { return toInt32(toNumber(value)); }
    quint32 toUint32(const ESValue &value) { return quint32(toInt32(value)); }
    quint16 toUint16(const ESValue &value) { return quint16(toInt32(value)); }
    quint8 toUint8(const ESValue &value) { return quint8(toInt32(value)); }
    static qint32 toInt32(double number);
    ESString *toString(const ESValue &value, int radix = 10);
    static QString numberText(double number, int radix = 10);
    QString toQString(const ESValue &value, int radix = 10) { return view(toString(value, radix)).toString(); }
    ESObject *toObject(const ESValue &value) { return value.isObject() ? value.object : toObjectSlow(value); }
    ESValue toPrimitive(const ESValue &value, ESHint hint);
    ESSymbol *toSymbol(const ESValue &value);

    // Comparisons of scripts: ==, and === where strings go by their text.
    bool equals(const ESValue &left, const ESValue &right);
    bool areIdentical(const ESValue &left, const ESValue &right);
    bool equalTexts(ESString *left, ESString *right);

    // Strings. A view lives as long as the context.
    QStringView view(ESString *string) { return string->isFlat() ? string->flat() : flatten(string); }
    ESString *makeString(QStringView text);
    ESString *makeCharacter(char16_t character);
    ESString *substring(ESString *string, quint32 from, quint32 length); // within it; shares its characters
    ESString *concatenate(ESString *left, ESString *right);
    char16_t *makeCharacters(quint32 length, ESString *&string); // a new string, to be filled at once

    // Objects.
    ESObject *makeObject() { return allocateObject(m_plainShape, 4); }
    ESObject *makeObject(ESObject *prototype, ESClass *esClass);
    ESObject *makeWrapper(ESObject *prototype, ESClass *esClass, ESValue primitive);
    ESObject *makeArray(quint32 length = 0); // its elements are holes
    ESObject *makeArray(std::span<const ESValue> elements);
    void setPrimitive(ESObject *object, ESValue primitive) { extraOf(object)->primitive = primitive; }

    // Properties, through the class's hooks.
    ESValue get(ESObject *object, ESSymbol *name);
    ESValue get(ESObject *object, quint32 index);
    ESValue get(ESObject *object, const char *name) { return get(object, esIntern(name)); }
    void put(ESObject *object, ESSymbol *name, ESValue value);
    void put(ESObject *object, quint32 index, ESValue value);
    void put(ESObject *object, const char *name, ESValue value) { put(object, esIntern(name), value); }
    // Properties, past the hooks.
    static ESValue ordinaryGet(ESObject *object, ESSymbol *name);
    void ordinaryPut(ESObject *object, ESSymbol *name, ESValue value);
    void defineProperty(ESObject *object, quint32 flags, ESSymbol *name, ESValue value);
    bool hasProperty(const ESObject *object, ESSymbol *name) const; // itself or its prototypes
    bool deleteProperty(ESObject *object, ESSymbol *name);          // false: it has esDontDelete
    bool deleteProperty(ESObject *object, quint32 index);
    void setArrayLength(ESObject *array, quint32 length); // elements from there on are deleted
    quint32 arrayLength(const ESObject *array) const { return quint32(array->m_slots[0].number); }
    // The elements of an array (or other object) that lie in one piece from 0 on, holes as esAbsent values;
    // size may be less than the length. Good until a property is put or deleted.
    std::span<ESValue> elements(ESObject *object) { return {object->m_elements->values, object->m_elements->size}; }
    // Each element takes the place before it, the first is gone; there must be one. Costs the same however many
    // there are: the header moves over the first value. The length stays.
    void dropFirstElement(ESObject *object);

    // Natives. Functions of `rows` become properties of `owner` (flags 2): their class is `esClass`, their ids
    // count from `firstId`, their full names are `prefix` + name.
    void install(ESObject *owner, ESClass *esClass, const char *prefix, std::span<const ESNativeRow> rows, int firstId);
    // A constructor (native id 0) on the global object, with `prototype`, and `constructor` on that.
    ESObject *installConstructor(ESClass *esClass, const ESNativeRow &row, ESObject *prototype);
    ESObject *makeFunction(ESClass *esClass, const char *fullName, const ESNativeRow &row, int id);
    int nativeId(const ESObject *function) const { return function->m_extra ? function->m_extra->nativeId : -1; }
    // Takes a class over and has it add itself to the global object.
    void addClass(std::unique_ptr<ESClass> esClass);

    // What every context has.
    struct Prototypes
    {
        ESObject *object, *function, *array, *string, *number, *boolean, *date, *error;
    };
    Prototypes &prototypes() { return m_prototypes; }
    struct Classes
    {
        ESClass *global, *array, *function, *number, *string, *boolean, *date, *object, *math, *activation;
        ESClass *errors[esErrorKinds];
    };
    const Classes &classes() const { return m_classes; }
    ESObject *global() const { return m_global; }
    void setErrorConstructor(ESErrorKind kind, ESObject *constructor) { m_errors[int(kind)] = constructor; }

private:
    friend class ESInterpreter;
    friend class ESTranslator;
    friend class ESGenerator;
    friend class ESParser;

    // Calls what a script's code calls from native code: restores the state of the interpreter on every way out.
    class Run;

    double toNumberSlow(const ESValue &value);
    ESObject *toObjectSlow(const ESValue &value);
    QStringView flatten(ESString *string);
    ESObject *allocateObject(ESShape *shape, quint32 capacity);
    ESObjectExtra *extraOf(ESObject *object);
    ESShape *rootShape(ESObject *prototype, ESClass *esClass);
    void addProperty(ESObject *object, ESSymbol *name, quint32 flags, ESValue value);
    void growSlots(ESObject *object, quint32 capacity);
    void putElement(ESObject *object, quint32 index, ESValue value);
    bool growElements(ESObject *object, quint32 index); // false: the number is too far out
    bool isNativeStackLow() const;
    quint32 globalSlot(ESSymbol *name); // made on first use
    ESShape *activationShape(const ESCode &code);
    // The code of the program; that of its functions goes into the table.
    std::unique_ptr<ESCode> compile(const QString &source, ESTree &tree,
                                    const std::function<ESFunctionNode *(ESParser &)> &parse);
    ESFrame *nativeFrame(std::span<const ESValue> arguments, quint32 count);
    void makeLibrary();

    ESArena m_arena;
    std::vector<std::unique_ptr<ESClass>> m_ownedClasses;
    Classes m_classes{};
    Prototypes m_prototypes{};
    ESObject *m_global = nullptr;
    ESObject *m_errors[esErrorKinds] = {};
    struct ShapeKey
    {
        ESObject *prototype;
        ESClass *esClass;
        bool operator==(const ShapeKey &) const = default;
    };
    struct ShapeKeyHash
    {
        size_t operator()(const ShapeKey &key) const
        {
            return (quintptr(key.prototype) >> 3) * 31 + quintptr(key.esClass);
        }
    };
    std::unordered_map<ShapeKey, ESShape *, ShapeKeyHash> m_rootShapes;
    ESShape *m_plainShape = nullptr, *m_arrayShape = nullptr, *m_functionShape = nullptr;
    quint32 m_prototypeEpoch = 0; // counts changes of shape of objects that are prototypes

    ESValue *m_stack = nullptr, *m_stackEnd = nullptr;
    ESFrame *m_frame = nullptr, *m_frames = nullptr, *m_framesEnd = nullptr; // the innermost, and all
    std::vector<ESHandler> m_handlers;
    const void *m_ownStep = nullptr;
    bool m_stepping = false;

    std::vector<std::unique_ptr<ESCode>> m_codes; // what CLOSURE refers to
    std::shared_ptr<const ESSource> m_source;     // of the present evaluation
    QStringList m_searchPaths, m_warnings;
    int m_compileLine = 0; // where the compiler failed, while that is told
    int m_loadDepth = 0;
};
