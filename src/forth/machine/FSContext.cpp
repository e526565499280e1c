#include "forth/machine/FSContext.h"

#include "forth/machine/ForthMessages.h"
#include "forth/machine/ForthWords.h"

#include <charconv>
#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

bool isPrintable(char c)
{
    return c > 32 && c < 127;
}

char toUpper(char c)
{
    return c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c;
}

int digitOf(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return c >= 'A' && c <= 'Z' ? c - 'A' + 10 : 99;
}

// Digits, signs, points and E, with at least one E, which may be the last character. The word is upper-case.
std::optional<double> readFloat(std::string_view word)
{
    if (word.find('E') == word.npos || word.find_first_not_of("0123456789+-.E") != word.npos)
        return {};
    std::string text(word);
    if (text.back() == 'E')
        text += '0';
    const char *start = text.data() + (text.front() == '+'), *end = text.data() + text.size();
    double value = 0;
    const auto [rest, error] = std::from_chars(start, end, value);
    if (rest != end || (text.front() == '+' && *start == '-'))
        return {};
    if (error == std::errc::result_out_of_range) {
        value = text.find("E-") == text.npos ? std::numeric_limits<double>::infinity() : 0.0;
        value = std::copysign(value, text.front() == '-' ? -1.0 : 1.0);
    }
    return value;
}

// A sign, a prefix for the radix ($ 16, % 2, # 10) and digits. Values wrap at 64 bits.
std::optional<qint64> readNumber(std::string_view word)
{
    bool isNegative = false;
    if (!word.empty() && (word.front() == '-' || word.front() == '+')) {
        isNegative = word.front() == '-';
        word.remove_prefix(1);
    }
    int radix = 10;
    if (!word.empty() && (word.front() == '$' || word.front() == '%' || word.front() == '#')) {
        radix = word.front() == '$' ? 16 : word.front() == '%' ? 2 : 10;
        word.remove_prefix(1);
    }
    if (word.empty())
        return {};
    quint64 value = 0;
    for (const char c : word) {
        const int digit = digitOf(c);
        if (digit >= radix)
            return {};
        value = value * quint64(radix) + quint64(digit);
    }
    return qint64(isNegative ? 0 - value : value);
}

} // namespace

FSContext::FSContext(ForthScriptMessageInterface *messages, const ForthLimits &limits)
    : m_messages(messages),
      m_limits(limits),
      m_code(limits.dictionaryBytes),
      m_strings(limits.stringBytes),
      m_calls(std::make_unique_for_overwrite<const Slot *[]>(size_t(limits.calls))),
      m_call(m_calls.get()),
      m_callLimit(m_call + limits.calls),
      m_loops(std::make_unique_for_overwrite<LoopRecord[]>(size_t(limits.loops) + 1)),
      m_loop(m_loops.get()),
      m_loopLimit(m_loop + limits.loops),
      m_localCells(std::make_unique<Cell[]>(size_t(limits.localCells))),
      m_localBase(m_localCells.get()),
      m_localTop(m_localBase)
{
    *m_loop = {Cell::integerKind, 0, std::numeric_limits<qint64>::min()};
    m_currentList = newWordList(u"FORTH"_s);
    m_order.pushTop(m_currentList);
    ForthWords::enterAll(*this);
}

FSContext::~FSContext() = default;

// Strings

Cell FSContext::newString(const QString &text)
{
    if (text.size() > m_limits.stringLength)
        throw ForthException(ForthError::StringOverflow);
    if (m_strings.isDue(text))
        collectStrings();
    return Cell::ofString(m_strings.make(text));
}

void FSContext::collectStrings()
{
    for (const CellStack *stack : {&dataStack, &returnStack})
        std::ranges::for_each(stack->everyCell(), StringHeap::mark);
    std::for_each(m_localCells.get(), m_localTop, StringHeap::mark);
    std::ranges::for_each(m_literals, StringHeap::mark);
    for (const PMemory *memory : m_memories)
        std::for_each(memory->cells, memory->cells + memory->used, StringHeap::mark);
    m_strings.sweep();
}

// The source being read

std::string_view FSContext::parseWord(bool upperCase)
{
    const std::string_view line = m_source ? m_source->line() : std::string_view();
    while (m_offset < line.size() && !isPrintable(line[m_offset]))
        ++m_offset;
    size_t length = 0;
    for (; m_offset < line.size() && isPrintable(line[m_offset]); ++m_offset)
        m_word[length++] = upperCase ? toUpper(line[m_offset]) : line[m_offset];
    if (m_offset < line.size())
        ++m_offset;
    return {m_word.data(), length};
}

std::string_view FSContext::parseText(char delimiter, bool skipLeading)
{
    std::string_view rest = m_source ? m_source->line().substr(std::min(m_offset, m_source->line().size())) : "";
    if (skipLeading)
        rest.remove_prefix(std::min(rest.find_first_not_of(delimiter), rest.size()));
    const std::string_view text = rest.substr(0, rest.find(delimiter));
    if (m_source)
        m_offset = m_source->line().size() - rest.size() + text.size() + (text.size() < rest.size());
    return text;
}

bool FSContext::skipPast(char delimiter)
{
    const size_t found = m_source ? m_source->line().find(delimiter, m_offset) : std::string_view::npos;
    skipLine();
    if (found == std::string_view::npos)
        return false;
    m_offset = found + 1;
    return true;
}

bool FSContext::refill()
{
    if (!m_source || !m_source->refill())
        return false;
    m_offset = 0;
    return true;
}

void FSContext::skipLine()
{
    if (m_source)
        m_offset = m_source->line().size();
}

FileSource *FSContext::file(qint64 identifier) const
{
    return identifier > 0 && identifier <= qint64(m_files.size()) ? m_files[size_t(identifier - 1)].get() : nullptr;
}

int FSContext::addFile(std::unique_ptr<FileSource> file)
{
    auto free = std::find(m_files.begin(), m_files.end(), nullptr);
    if (free == m_files.end())
        free = m_files.insert(free, nullptr);
    *free = std::move(file);
    return int(free - m_files.begin()) + 1;
}

int FSContext::closeFile(int identifier)
{
    const std::unique_ptr<FileSource> file = std::move(m_files[size_t(identifier - 1)]);
    return file->close();
}

// Puts the present source back and closes the file, however reading it ends.
struct FSContext::Include
{
    Include(FSContext &machine, int identifier)
        : context(machine), source(machine.m_source), offset(machine.m_offset), fileIdentifier(machine.m_fileIdentifier)
    {
        FileSource *file = context.file(identifier);
        file->isRunning = true;
        context.m_source = file;
        context.m_offset = 0;
        context.m_fileIdentifier = identifier;
        ++context.m_includeDepth;
    }
    ~Include()
    {
        --context.m_includeDepth;
        context.closeFile(context.m_fileIdentifier);
        context.m_source = source;
        context.m_offset = offset;
        context.m_fileIdentifier = fileIdentifier;
    }

    FSContext &context;
    Source *source;
    size_t offset;
    int fileIdentifier;
};

void FSContext::includeFile(int identifier)
{
    const QString name = file(identifier)->name();
    if (m_includeDepth >= m_limits.includes) {
        closeFile(identifier);
        throw ForthException(ForthError::InvalidRecursion, name);
    }
    const Include including(*this, identifier);
    interpretLines();
}

// The outer interpreter

QString FSContext::interpret(Source &source)
{
    // What a source that is being read looks like, so that a host operation may interpret another.
    struct Restore
    {
        FSContext &context;
        Source *source;
        size_t offset;
        int fileIdentifier;
        ~Restore()
        {
            context.m_source = source;
            context.m_offset = offset;
            context.m_fileIdentifier = fileIdentifier;
        }
    } const restore{*this, m_source, m_offset, m_fileIdentifier};
    if (!m_source) {
        m_interrupts = 0;
        m_interruptsSeen = 0;
    }
    m_hasErrorPlace = false;
    m_errorPlace = {};
    m_source = &source;
    m_offset = 0;
    m_fileIdentifier = 0;
    try {
        interpretLines();
        return {};
    } catch (const ForthException &exception) {
        const QString text = exception.text();
        if (m_messages)
            m_messages->error(text);
        m_isCompiling = false;
        m_definition = nullptr;
        dropLocals();
        return text;
    }
}

void FSContext::interpretLines()
{
    try {
        for (;;) {
            const std::string_view word = parseWord();
            if (word.empty()) {
                if (!refill())
                    return;
            } else if (pcode *found = find(word)) {
                if (m_isCompiling && !found->isImmediate())
                    found->compile(*this);
                else if (found->formOp() == Op::CallFunction)
                    found->formOperand().function(*this);
                else
                    found->execute(this);
            } else {
                interpretNumber(word);
            }
            pollInterrupt();
        }
    } catch (const ForthException &) {
        notePlace();
        throw;
    }
}

void FSContext::interpretNumber(std::string_view word)
{
    Cell cell;
    if (const auto number = readFloat(word))
        cell = Cell::ofFloat(*number);
    else if (const auto integer = readNumber(word))
        cell = Cell::ofInteger(*integer);
    else
        throw ForthException(ForthError::UndefinedWord, QString::fromLatin1(word.data(), qsizetype(word.size())));
    if (m_isCompiling)
        appendLiteral(cell);
    else
        push(cell);
}

// The innermost source that an exception leaves is where it happened.
void FSContext::notePlace()
{
    if (m_hasErrorPlace || !m_source)
        return;
    m_hasErrorPlace = true;
    const std::string_view line = m_source->line();
    m_errorPlace = {{m_source->name(), m_source->lineNumber()}, QString::fromUtf8(line.data(), qsizetype(line.size()))};
}

// Words

pcode *FSContext::find(std::string_view name) const
{
    const quint32 hash = WordList::hashOf(name);
    if (m_locals) {
        if (pcode *word = m_locals->find(name, hash))
            return word;
    }
    for (auto list = m_order.lists().rbegin(); list != m_order.lists().rend(); ++list) {
        if (pcode *word = (*list)->find(name, hash))
            return word;
    }
    return forthList()->find(name, hash);
}

pcode *FSContext::findNext()
{
    const std::string_view name = parseWord();
    if (pcode *word = find(name))
        return word;
    throw ForthException(ForthError::UndefinedWord, QString::fromLatin1(name.data(), qsizetype(name.size())));
}

WordList *FSContext::newWordList(const QString &name)
{
    if (m_wordLists.size() == SearchOrder::capacity)
        throw ForthException(ForthError::SearchOrderOverflow);
    m_wordLists.push_back(std::make_unique<WordList>(int(m_wordLists.size()), name));
    return m_wordLists.back().get();
}

WordList *FSContext::wordList(qint64 number) const
{
    if (number < 0 || number >= qint64(m_wordLists.size()))
        throw ForthException(ForthError::InvalidWordlist);
    return m_wordLists[size_t(number)].get();
}

void FSContext::enter(pcode *word, WordList *list)
{
    if (word->name().empty())
        return;
    const pcode *old = list->find(word->name());
    list->enter(word);
    if (!old || !m_messages)
        return;
    const QString subject = word->displayName() + u" in vocabulary "_s + list->displayName();
    if (old->location.source.isEmpty()) {
        m_messages->notice(word->location, u"redefining built-in "_s + subject);
    } else {
        m_messages->notice(word->location, u"redefining "_s + subject);
        m_messages->notice(old->location, u" previously defined here"_s);
    }
}

PCFA *FSContext::makeConstant(std::string_view name, const Cell &value)
{
    auto *word = make<PConstantChild>(name, &m_literals.emplace_back(value));
    word->setFlags(pcode::primitiveFlag);
    enter(word);
    return word;
}

PMemory *FSContext::memoryForHere()
{
    static int anonymousCount = 0; // of the process
    if (!m_memory)
        m_memory = makeMemory<PIMemory>("(ANON#" + std::to_string(++anonymousCount) + ')');
    return m_memory;
}

// The definition under construction

void FSContext::sealDefinition()
{
    dropLocals();
    if (!m_definition || m_definition->isSealed)
        return;
    m_definition->isSealed = true;
    // What CREATE has made and nobody has added to is a literal.
    const bool isPlain = m_definition->memory && m_definition->body->label == opLabel(Op::Address) &&
                         m_code.here() == m_definition->body + 1 + operandCount(Op::Address);
    if (isPlain)
        m_definition->setForm(Op::Address, {{.memory = m_definition->memory}, {.value = 0}});
}

PCFA *FSContext::openDefinition() const
{
    if (!m_definition)
        throw ForthException(ForthError::NoDefinition);
    if (m_definition->isSealed)
        throw ForthException(ForthError::SealedDefinition, m_definition->displayName());
    return m_definition;
}

Slot *FSContext::append(Op op, std::span<const Slot> operands)
{
    openDefinition();
    return m_code.append(op, operands);
}

Slot *FSContext::appendBranch(Op op)
{
    return append(op, {{.target = fixedCode(Op::Exit)}});
}

void FSContext::appendLiteral(const Cell &cell)
{
    openDefinition();
    if (cell.isInteger())
        append(Op::Literal, {{.value = cell.integer}});
    else if (cell.isAddress())
        append(Op::Address, {{.memory = cell.memory()}, {.value = cell.integer}});
    else
        append(Op::PushCell, {{.cell = &m_literals.emplace_back(cell)}});
}

// Before its first local a definition gets room for all of them: what calls it enters here first. The
// instructions so far, if any, are then reached from the entry.
PLocalChild *FSContext::declareLocal(std::string_view name)
{
    openDefinition();
    if (!m_localCount) {
        const Slot *start = m_definition->body;
        const bool isFirst = m_code.here() == start;
        Slot *over = isFirst ? nullptr : appendBranch(Op::Branch);
        const Slot *entry = m_code.here();
        m_localCount = append(Op::LocalsEnter, {{.value = 0}});
        if (over) {
            append(Op::Branch, {{.target = start}});
            over->target = m_code.here();
            m_definition->body = entry;
        }
        m_locals = std::make_unique<WordList>(-1, u"LOCALS"_s);
    }
    auto *local = make<PLocalChild>(name, m_localCount->value++);
    if (!local->name().empty())
        m_locals->enter(local);
    return local;
}

void FSContext::dropLocals()
{
    m_locals.reset();
    m_localCount = nullptr;
}
