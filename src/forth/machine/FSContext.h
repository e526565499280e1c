#pragma once

#include "forth/machine/CellStack.h"
#include "forth/machine/ControlStack.h"
#include "forth/machine/Source.h"
#include "forth/machine/StringHeap.h"
#include "forth/machine/WordList.h"

#include <QStringList>
#include <atomic>

// What a context may use. Tests shrink them.
struct ForthLimits
{
    size_t dictionaryBytes = size_t(512) << 20; // instructions, words and memories
    size_t stringBytes = size_t(256) << 20;
    qsizetype stringLength = qsizetype(16) << 20; // characters
    int calls = 16384;                            // definitions in each other
    int loops = 4096;
    int localCells = 16384;
    int catches = 256;
    int includes = 64;
};

// Where an error happened: the line that was being read.
struct ForthErrorPlace
{
    ForthLocation location;
    QString line;
};

// The Forth machine: stacks, word lists, the definition under construction, the outer interpreter that reads
// sources and the inner one that runs instructions. Failures are ForthExceptions; interpret() reports them
// and the machine stays usable.
class FSContext
{
public:
    explicit FSContext(ForthScriptMessageInterface *messages = nullptr, const ForthLimits &limits = {});
    FSContext(const FSContext &) = delete;
    FSContext &operator=(const FSContext &) = delete;
    ~FSContext();

    // Running texts.

    // Reads `source` to its end. Gives the error's text, which the message interface has got too; empty when
    // all went well. An exception of the host passes through.
    QString interpret(Source &source);
    // Of the last error that interpret() gave; its line is 0 when nothing was being read.
    const ForthErrorPlace &errorPlace() const { return m_errorPlace; }
    // Makes the running words throw -28 soon; callable from a signal handler. CATCH catches the first one
    // of a run only.
    void requestInterrupt() { m_interrupts.fetch_add(1, std::memory_order_relaxed); }
    bool isCompiling() const { return m_isCompiling; }
    void setCompiling(bool compiling) { m_isCompiling = compiling; }
    ForthScriptMessageInterface *messages() const { return m_messages; }
    void setMessages(ForthScriptMessageInterface *messages) { m_messages = messages; }
    void output(const QString &text)
    {
        if (m_messages)
            m_messages->output(text);
    }
    // Performs instructions from `start` to the Exit of the definition.
    void run(const Slot *start);
    // The instruction, which takes no operands, and an Exit.
    static const Slot *fixedCode(Op op);

    // Stacks. Pops of a type throw -12 for another type.

    CellStack dataStack, returnStack;
    void push(const Cell &cell) { dataStack.push(cell); }
    void pushInteger(qint64 value) { push(Cell::ofInteger(value)); }
    void pushFlag(bool value) { push(Cell::ofFlag(value)); }
    void pushString(const QString &text) { push(newString(text)); }
    Cell pop() { return dataStack.pop(); }
    qint64 popInteger() { return pop().toInteger(); }
    double popFloat() { return pop().toFloat(); }
    QString popString() { return pop().toString(); }
    pcode *popCode() { return pop().toCode(); }
    // Any cell that isn't on a stack, in a memory or a literal may lose its string here.
    Cell newString(const QString &text);
    qsizetype longestString() const { return m_limits.stringLength; } // a longer one throws -17

    // The source being read.

    // The next word of the line, in a buffer that the next call overwrites. Empty at the end of the line.
    std::string_view parseWord(bool upperCase = true);
    // The text up to `delimiter`, which is passed over too, or to the end of the line.
    std::string_view parseText(char delimiter, bool skipLeading = false);
    // Goes on behind the next `delimiter`; false when the line has none.
    bool skipPast(char delimiter);
    bool refill();
    void skipLine();
    int fileIdentifier() const { return m_fileIdentifier; }
    // Open files by identifier, from 1; null for one that isn't open.
    FileSource *file(qint64 identifier) const;
    int addFile(std::unique_ptr<FileSource> file);
    int closeFile(int identifier); // as FileSource::close()
    // Reads the file to its end, closes it and goes on in the present source. Throws what its words throw.
    void includeFile(int identifier);
    // Folders in which INCLUDE looks for a relative name that isn't below the current one.
    QStringList includePath;

    // Words.

    // By the locals, then the search order, then the FORTH list; null when there is none.
    pcode *find(std::string_view upperCaseName) const;
    // The word that the source names next; throws -13.
    pcode *findNext();
    SearchOrder &order() { return m_order; }
    WordList *forthList() const { return m_wordLists.front().get(); }
    WordList *currentList() const { return m_currentList; }
    void setCurrentList(WordList *list) { m_currentList = list; }
    // Throws -49 when there are eight.
    WordList *newWordList(const QString &name);
    // Throws -266 for a number that isn't in use.
    WordList *wordList(qint64 number) const;
    // Puts the word into `list` and tells of the one that it replaces. A word without name isn't entered.
    void enter(pcode *word, WordList *list);
    void enter(pcode *word) { enter(word, m_currentList); }
    template <typename Node, typename... Arguments>
    Node *make(Arguments &&...arguments)
    {
        m_code.charge(sizeof(Node));
        auto node = std::make_unique<Node>(std::forward<Arguments>(arguments)...);
        node->location = m_source ? ForthLocation{m_source->name(), m_source->lineNumber()} : ForthLocation();
        Node *made = node.get();
        m_nodes.push_back(std::move(node));
        return made;
    }
    template <typename Memory>
    Memory *makeMemory(std::string_view name)
    {
        Memory *memory = make<Memory>(name);
        m_memories.push_back(memory);
        return memory;
    }
    PCFA *makeConstant(std::string_view name, const Cell &value);

    // HERE and ALLOT work on it.
    void setCurrentMemory(PMemory *memory) { m_memory = memory; }
    PMemory *memoryForHere(); // makes one when there is none
    void allot(PMemory *memory, qint64 count) { memory->allot(m_code, count); }

    // The definition under construction.

    PCFA *definition() const { return m_definition; }
    // Seals the present definition and goes on with this one, whose instructions start here.
    template <typename Definition>
    Definition *beginDefinition(std::string_view name)
    {
        sealDefinition();
        Definition *word = make<Definition>(name, m_code.here(true));
        m_definition = word;
        return word;
    }
    void continueDefinition(PCFA *word) { m_definition = word; }
    void sealDefinition();
    // Throws -256 when there is none, -270 when it is sealed.
    PCFA *openDefinition() const;
    Slot *append(Op op, std::span<const Slot> operands);
    Slot *append(Op op, std::initializer_list<Slot> operands = {}) { return append(op, std::span(operands)); }
    // A branch whose target is set later; gives the operand.
    Slot *appendBranch(Op op);
    void appendLiteral(const Cell &cell);
    const Slot *here() { return m_code.here(); }
    ControlStack controlStack;
    // Declares a local of the definition under construction.
    PLocalChild *declareLocal(std::string_view name);

private:
    struct LoopRecord
    {
        quint64 kind; // of both: integers, or addresses in one memory
        qint64 index, limit;
    };
    // What CATCH goes back to.
    struct Handler
    {
        int dataDepth, returnDepth;
        LoopRecord *loop;
        const Slot **call;
        Cell *localBase, *localTop;
        const Source *source;
        int line;
        size_t offset;
    };
    struct RunState; // restores what a run has used when it ends by an exception
    struct Include;

    friend const void *opLabel(Op op);
    static const void *const *runInstructions(FSContext *context, const Slot *ip);
    void interpretLines();
    void dropLocals();
    void interpretNumber(std::string_view word);
    void notePlace();
    void pollInterrupt();
    [[noreturn]] void throwTooDeep();
    void pushHandler();
    bool canCatch(qint64 code) const;
    void unwind(qint64 code);
    void enterLocals(qint64 count);
    void collectStrings();

    ForthScriptMessageInterface *m_messages;
    const ForthLimits m_limits;

    CodeSpace m_code;
    StringHeap m_strings;
    std::deque<Cell> m_literals;
    std::vector<std::unique_ptr<pcode>> m_nodes;
    std::vector<PMemory *> m_memories;

    // Inner interpreter. A call pushes the instruction to return to.
    std::unique_ptr<const Slot *[]> m_calls;
    const Slot **m_call;
    const Slot **m_callLimit;
    std::unique_ptr<LoopRecord[]> m_loops; // the first is no loop
    LoopRecord *m_loop;
    LoopRecord *m_loopLimit;
    // A frame of locals is an integer, the distance to the frame before, and then the locals.
    std::unique_ptr<Cell[]> m_localCells;
    Cell *m_localBase;
    Cell *m_localTop; // behind the last
    std::vector<Handler> m_handlers;
    size_t m_firstHandler = 0; // of the present run
    std::atomic<int> m_interrupts = 0;
    int m_interruptsSeen = 0;

    // Outer interpreter.
    Source *m_source = nullptr;
    size_t m_offset = 0;
    int m_fileIdentifier = 0;
    int m_includeDepth = 0;
    std::vector<std::unique_ptr<FileSource>> m_files;
    ForthErrorPlace m_errorPlace;
    bool m_hasErrorPlace = false;
    bool m_isCompiling = false;
    std::array<char, Source::maximumLineLength + 1> m_word;

    // Dictionary.
    std::vector<std::unique_ptr<WordList>> m_wordLists;
    SearchOrder m_order;
    WordList *m_currentList;
    std::unique_ptr<WordList> m_locals;
    PMemory *m_memory = nullptr;
    PCFA *m_definition = nullptr;
    Slot *m_localCount = nullptr; // in the definition under construction; null before its first local
};
