#pragma once

#include "debug/dwarf/ElfDwarfFile.h"
#include "debug/values/DebugExpressionParser.h"
#include "debug/values/DwarfLocationExpressionEvaluator.h"
#include "debug/values/DwarfTypes.h"
#include "debug/values/SyntheticTypes.h"
#include "debug/values/VarInfo.h"

class Frame;
class TargetMemoryInterface;
struct TypeBindings;
class XMLElement;

// Evaluates the expressions of a user over one program: names are found in its debug information, in the scope of
// an address, and values are read from a target. It also runs the location expressions that this takes.
//
// A subclass binds it to a target by the virtual operations: to a frame of a running program, or to the file
// alone. Places (VarInfo) that operations give belong to the evaluator and live until it gets another frame or
// file. All failures are ParserExceptions or what the target's memory throws, which is an HException.
class DwarfExpressionEvaluator : public DwarfLocationExpressionEvaluator, public DebugExpressionParser
{
public:
    DwarfExpressionEvaluator();
    ~DwarfExpressionEvaluator() override;

    using DebugExpressionParser::evaluate;
    using DwarfLocationExpressionEvaluator::evaluate;

    // Where names are looked up. A frame selects the program that it is of; only an ElfDwarfFrame has one. Both drop
    // all places.
    void setFile(ElfDwarfFile *file);
    void setFrame(Frame *frame);
    void setContext(Frame *frame) { setFrame(frame); }
    // An address that counts in place of the frame's program counter.
    void setOverridePc(std::optional<quint32> pc) { m_overridePc = pc; }
    ElfDwarfFile *file() const { return m_file; }

    // What a subclass knows.

    virtual TargetMemoryInterface *memoryOf(quint32 /*kind*/, quint64 /*address*/) { return nullptr; }
    virtual qint32 registerNumber(const QString & /*name*/) { return -1; }
    virtual QString registerName(quint32 number) { return u'r' + QString::number(number); }
    virtual bool hasFrame() { return m_overridePc || m_frame; }
    virtual quint32 scopePc();
    // The source file and line that the user looks at, which tell variables of one name apart; none: empty and 0.
    virtual std::pair<QString, quint32> sourcePosition() { return {}; }
    virtual void beforeLocation(quint32 /*kind*/) {}
    virtual quint32 memoryKind() { return VarInfo::Memory; } // of variables
    virtual bool isHidden(const QString & /*name*/) { return false; }
    virtual bool isValidAddress(quint32 /*address*/) { return true; }
    virtual const XMLElement *typeDescriptionRoot() { return nullptr; }
    // The description of a type by its text; `arguments` takes those of a template's instance. See TypeDescriptions.
    virtual const XMLElement *findDescription(const QString &name, QStringList &arguments);
    // The text of a description's expression with what its names stand for.
    virtual QString substitute(const TypeBindings &bindings, const QString &text);
    virtual void report(const QString & /*text*/) {}

    // DwarfLocationExpressionEvaluator

    quint32 frameValue() override;
    quint32 programCounter() override;
    quint32 readRegister(quint32 number) override;
    quint64 readSized(quint32 address, quint32 size) override;
    quint32 canonicalFrameAddress() override;
    quint32 mapAddress(quint32 address) override;

    // ExpressionParser

    VarInfo *lookupScoped(const QStringList &names) override;
    VarInfo *lookup(const QString &name) override;
    VarInfo *lookupRegister(const QString &name) override;
    bool isTypeName(const QString &name) override;
    bool isTemplateName(const QString &name) override;
    VarInfo *cast(const BaseType &type, const ExpressionValue &value) override;
    bool isPointer(MarkerType *marker) override;
    bool isArray(MarkerType *marker) override;
    VarInfo *index(MarkerType *marker, qint64 n) override;
    VarInfo *field(MarkerType *marker, const QString &name) override;
    VarInfo *fieldPath(MarkerType *marker, const QStringList &names) override;
    VarInfo *addressOf(MarkerType *marker) override;
    ExpressionValue sizeOf(MarkerType *marker) override;
    ExpressionValue sizeOfType(const BaseType &type) override;
    ExpressionValue addressOfLine(const QString &file, quint32 line) override;
    ExpressionValue assign(MarkerType *marker, const ExpressionValue &value) override;
    ExpressionValue markerValue(MarkerType *marker) override;
    VarInfo *pointerAdd(MarkerType *marker, qint64 n) override;

    // DebugExpressionParser

    void readLocation(quint32 kind, quint32 address, quint32 length, void *dest) override;
    void writeLocation(quint32 kind, quint32 address, quint32 length, const void *source) override;
    QString readCString(quint32 kind, quint32 address, quint32 maximumLength) override;
    void readRegisterBlock(quint64 number, quint32 length, void *dest) override;
    void writeRegisterBlock(quint64 number, quint32 offset, quint32 length, const void *source) override;

    // Types

    DwarfTypes &types() { return *m_types; }
    SyntheticTypes &synthetic() { return *m_synthetic; }
    // The type behind all that only qualifies or renames it.
    DwarfDebuggingInformationEntry plainType(DwarfDebuggingInformationEntry type);
    // A type by the name that a user writes: with its namespaces and classes, or with "struct" and the like before
    // it. None when there is no such type.
    DwarfDebuggingInformationEntry typeNamed(const QString &name);
    // The entry that a written type stands for, or none.
    DwarfDebuggingInformationEntry typeToEntry(const BaseType &type);
    // The same for a type in an expression's text; none for what is no type.
    DwarfDebuggingInformationEntry typeOfText(const QString &text);
    // A text that names the type in an expression.
    QString textOfType(DwarfDebuggingInformationEntry type);
    const std::vector<TypeMember> &membersOf(DwarfDebuggingInformationEntry type);

    // Values

    // Makes the bytes of a place the block on top. `lazy`: of a place in memory they are read when asked for.
    void pushBlockOf(const VarInfo &place, bool lazy = false);
    ExpressionValue readValue(const VarInfo &place);
    // Of the block on top, at its cursor. Kind None for what has no value of its own, such as a structure.
    ExpressionValue readEntry(DwarfDebuggingInformationEntry type);
    void writeEntry(DwarfDebuggingInformationEntry type, const ExpressionValue &value);
    // What the bits of a bit field of that type mean.
    ExpressionValue bitFieldValue(DwarfDebuggingInformationEntry type, quint64 bits, quint32 size, quint32 bitSize);
    // Structures are read and written as numbers.
    void setRaw(bool raw) { m_isRaw = raw; }
    bool isRaw() const { return m_isRaw; }
    // Whatever a display tree shows is read when it is shown.
    void setLazy(bool lazy) { m_isLazy = lazy; }
    bool isLazy() const { return m_isLazy; }

    // Places

    // Where the variable, function or constant of an entry is; null when it is nowhere.
    VarInfo *markerOf(DwarfDebuggingInformationEntry entry);
    VarInfo *keep(const VarInfo &place);
    VarInfo makePlace(quint32 kind, quint64 address, DwarfDebuggingInformationEntry type, quint32 size);
    // A member of a class, of an object at `object`; null for one that is nowhere.
    VarInfo *memberPlace(const VarInfo &object, DwarfDebuggingInformationEntry classType, const TypeMember &member);
    // Where a bit field lies within its class, as VarInfo has it.
    struct BitPlace
    {
        quint32 offset, size;
        qint32 bitOffset;
    };
    BitPlace bitPlaceOf(const TypeMember &member, quint32 classSize) const;
    // How far into the object at `address` a virtual base or a computed member lies.
    std::optional<quint32> dynamicOffset(const TypeMember &member, quint32 address);
    VarInfo *staticMember(DwarfDebuggingInformationEntry classType, const TypeMember &member);
    // Places that were made since `mark` are dropped.
    size_t resultCount() const { return m_results.size(); }
    void dropResults(size_t mark) { m_results.resize(std::min(mark, m_results.size())); }

    // Descriptions

    // A tree for `text`, made once; null for an empty text and, reported, for one that can't be parsed.
    Expression *parseCached(const QString &text);
    ExpressionValue evaluateBound(Expression &expression, quint64 head, quint64 current);

private:
    using Entry = DwarfDebuggingInformationEntry;
    using Enumerators = std::vector<std::pair<quint64, QString>>; // by number, the first of equal numbers first
    using Key = std::pair<DwarfCompilationUnit *, quint32>;
    static Key keyOf(Entry entry) { return {entry.unit(), entry.index()}; }

    void clearCaches();
    DwarfFile &dwarf() const;
    VarInfo partOf(VarInfo place, Entry type, quint32 offset, quint32 size);
    quint32 addressIn(const VarInfo &place) const;
    VarInfo placeOf(MarkerType *marker);
    const Enumerators &enumeratorsOf(Entry type);
    quint32 enumerationSize(Entry type) const;
    ExpressionValue enumerationValue(Entry type, quint64 number, quint32 size, quint32 bitSize);
    ExpressionValue readBase(Entry type);
    ExpressionValue readNumber(const VarInfo &place);
    quint64 integerFor(Entry type, const ExpressionValue &value);
    QByteArray constantBytes(const VarInfo &place) const;
    void writeBack(const VarInfo &place);
    ExpressionValue topValue(const VarInfo &place);
    bool isScalar(Entry type) const;
    static bool isPointerLike(Entry type);
    VarInfo *convert(const ExpressionValue &number, Entry type);
    // Look-ups of one step give none when the next one is to be asked, and null for what is there and nowhere.
    Entry enclosingFunction();
    VarInfo *thisOf(Entry function);
    std::optional<VarInfo *> lookupAtSourcePosition(const QString &name);
    std::optional<VarInfo *> lookupInFunction(Entry function, const QString &name);
    std::optional<VarInfo *> lookupInUnit(Entry function, const QString &name);
    std::optional<VarInfo *> lookupQualified(const QString &name);
    VarInfo *lookupThroughThis(Entry function, const QString &name);
    VarInfo *lookupSymbol(const QString &name);
    VarInfo *lookupInFunctionNamed(const QStringList &names);
    VarInfo *lookupInTypes(const QStringList &names);
    VarInfo *lookupEnumerator(const QStringList &names);
    VarInfo *placeOfStack(const std::vector<DwarfStackValue> &stack, Entry type);
    bool hasField(Entry classType, const QString &name);
    VarInfo *findField(const VarInfo &object, Entry classType, const QString &name);

    ElfDwarfFile *m_file = nullptr;
    Frame *m_frame = nullptr;
    std::optional<quint32> m_overridePc;
    bool m_isRaw = false, m_isLazy = false;
    std::unique_ptr<DwarfFile> m_noFile; // asked while there is no program
    std::unique_ptr<DwarfTypes> m_types;
    std::unique_ptr<SyntheticTypes> m_synthetic;
    std::vector<std::unique_ptr<VarInfo>> m_results;
    std::map<Key, Enumerators> m_enumerators;
    std::map<Key, std::vector<TypeMember>> m_members;
    QHash<QString, Entry> m_typesByName;
    std::map<Key, QString> m_typeTexts;
    std::map<QString, std::unique_ptr<Expression>> m_expressions;
};
