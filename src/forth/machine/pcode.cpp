#include "forth/machine/pcode.h"

#include "forth/machine/FSContext.h"
#include "forth/machine/ForthException.h"
#include "forth/machine/ScriptEngine.h"

#include <cstdlib>
#include <new>

using namespace Qt::StringLiterals;

void pcode::execute(FSContext *context)
{
    context->run(form());
}

PMemory *pcode::pfa() const
{
    throw ForthException(ForthError::Abort, displayName() + u" does not have a PFA"_s);
}

pcode *pcode::toWord() const
{
    throw ForthException(ForthError::NoStoreMethod);
}

void pcode::compile(FSContext &context)
{
    context.append(m_formOp, std::span(m_form).subspan(1, size_t(operandCount(m_formOp))));
}

void pcode::setForm(Op op, std::initializer_list<Slot> operands)
{
    m_formOp = op;
    m_form[0].label = opLabel(op);
    std::ranges::copy(operands, m_form.begin() + 1);
    m_form[1 + operands.size()].label = opLabel(Op::Exit);
}

PMemory::~PMemory()
{
    std::free(cells);
}

void PMemory::outside(const char *message)
{
    throw ForthException(ForthError::InvalidAddress, QString::fromLatin1(message));
}

void PMemory::allot(CodeSpace &space, qint64 count)
{
    if (count < -used)
        throw ForthException(ForthError::InvalidAddress, u"fewer cells allotted"_s);
    if (count > m_capacity - used) {
        constexpr qint64 mostCells = qint64(1) << 40; // keeps the arithmetic below in range; the limit comes first
        const qint64 capacity = std::max(used + std::min(count, mostCells), m_capacity * 2);
        space.charge(size_t(capacity - m_capacity) * sizeof(Cell));
        void *grown = std::realloc(static_cast<void *>(cells), size_t(capacity) * sizeof(Cell));
        if (!grown)
            throw std::bad_alloc();
        cells = static_cast<Cell *>(grown);
        m_capacity = capacity;
    }
    if (count > 0)
        std::fill_n(cells + used, count, Cell::ofInteger(0));
    used += count;
}

PCFA::PCFA(std::string_view name, const Slot *firstInstruction) : PLabel(name), body(firstInstruction)
{
    setForm(Op::Call, {{.word = this}});
}

PMemory *PCFA::pfa() const
{
    if (!memory)
        throw ForthException(ForthError::Abort, u">BODY not allowed on imported word "_s + displayName());
    return memory;
}

PConstantChild::PConstantChild(std::string_view name, Cell *value) : PCFA(name)
{
    if (value->isInteger())
        setForm(Op::Literal, {{.value = value->integer}});
    else
        setForm(Op::PushCell, {{.cell = value}});
    isSealed = true;
}

PValueChild::PValueChild(std::string_view name, PMemory *cells)
    : PCFA(name), m_store(Op::StoreCell, {{.cell = cells->cells}})
{
    setForm(Op::PushCell, {{.cell = cells->cells}});
    memory = cells;
    m_toWord = &m_store;
    isSealed = true;
}

PLocalChild::PLocalChild(std::string_view name, qint64 index)
    : PCFA(name), m_index(index), m_store(Op::LocalStore, {{.value = index}})
{
    setForm(Op::CallNode, {{.word = this}});
    m_toWord = &m_store;
    isSealed = true;
}

void PLocalChild::execute(FSContext *)
{
    throw ForthException(ForthError::Abort, u"local variable execution not supported"_s);
}

void PLocalChild::compile(FSContext &context)
{
    context.append(Op::LocalFetch, {{.value = m_index}});
}

FVocabularyChild::FVocabularyChild(std::string_view name, WordList *words) : pcode(name), m_words(words)
{
    setForm(Op::CallNode, {{.word = this}});
}

void FVocabularyChild::execute(FSContext *context)
{
    context->order().replaceTop(m_words);
}

Unwrapper::Unwrapper(std::string_view name, MethodWrapper *method, ScriptEngine *engine)
    : PCFA(name), m_method(method), m_engine(engine)
{
    setForm(Op::CallNode, {{.word = this}});
    isSealed = true;
}

void Unwrapper::execute(FSContext *)
{
    m_method->invoke(m_engine);
}
