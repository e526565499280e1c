// What surrounds the inner interpreter: runs within each other, exceptions and what they restore, locals.
#include "forth/machine/FSContext.h"

using namespace Qt::StringLiterals;

struct FSContext::RunState
{
    explicit RunState(FSContext &machine)
        : context(machine),
          call(machine.m_call),
          loop(machine.m_loop),
          localBase(machine.m_localBase),
          localTop(machine.m_localTop),
          handlers(machine.m_handlers.size()),
          firstHandler(machine.m_firstHandler)
    {
        context.m_firstHandler = handlers;
    }
    ~RunState()
    {
        context.m_call = call;
        context.m_loop = loop;
        context.m_localBase = localBase;
        context.m_localTop = localTop;
        context.m_handlers.resize(handlers);
        context.m_firstHandler = firstHandler;
    }

    FSContext &context;
    const Slot **call;
    LoopRecord *loop;
    Cell *localBase, *localTop;
    size_t handlers, firstHandler;
};

const void *opLabel(Op op)
{
    static const void *const *labels = FSContext::runInstructions(nullptr, nullptr);
    return labels[size_t(op)];
}

const Slot *FSContext::fixedCode(Op op)
{
    static const auto code = [] {
        std::array<std::array<Slot, 2>, size_t(Op::Count)> all;
        for (size_t i = 0; i < all.size(); ++i)
            all[i] = {Slot{.label = opLabel(Op(i))}, Slot{.label = opLabel(Op::Exit)}};
        return all;
    }();
    return code[size_t(op)].data();
}

void FSContext::run(const Slot *start)
{
    const RunState state(*this);
    if (m_call == m_callLimit)
        throwTooDeep();
    *m_call++ = fixedCode(Op::Stop);
    for (;;) {
        try {
            runInstructions(this, start);
            return;
        } catch (const ForthException &exception) {
            if (!canCatch(exception.code()))
                throw;
            unwind(exception.code());
            start = fixedCode(Op::Exit);
        }
    }
}

void FSContext::throwTooDeep()
{
    throw ForthException(ForthError::ReturnStackOverflow, u"definitions nested too deeply"_s);
}

void FSContext::pollInterrupt()
{
    if (m_interrupts.load(std::memory_order_relaxed) == 0)
        return;
    m_interrupts.store(0, std::memory_order_relaxed);
    ++m_interruptsSeen;
    throw ForthException(ForthError::UserInterrupt);
}

// The instruction to return to has been pushed.
void FSContext::pushHandler()
{
    if (m_handlers.size() == size_t(m_limits.catches))
        throw ForthException(ForthError::ExceptionStackOverflow);
    m_handlers.push_back({dataStack.depth(), returnStack.depth(), m_loop, m_call, m_localBase, m_localTop, m_source,
                          m_source ? m_source->lineNumber() : 0, m_offset});
}

bool FSContext::canCatch(qint64 code) const
{
    const bool insists = code == ForthError::UserInterrupt && m_interruptsSeen > 1;
    return m_handlers.size() > m_firstHandler && !insists;
}

void FSContext::unwind(qint64 code)
{
    const Handler handler = m_handlers.back();
    m_handlers.pop_back();
    dataStack.setDepth(handler.dataDepth);
    returnStack.setDepth(handler.returnDepth);
    m_loop = handler.loop;
    m_call = handler.call;
    m_localBase = handler.localBase;
    m_localTop = handler.localTop;
    if (m_source == handler.source && m_source && m_source->lineNumber() == handler.line)
        m_offset = handler.offset;
    m_hasErrorPlace = false;
    pushInteger(code);
}

void FSContext::enterLocals(qint64 count)
{
    if (count + 1 > m_localCells.get() + m_limits.localCells - m_localTop || m_call == m_callLimit)
        throwTooDeep();
    *m_localTop = Cell::ofInteger(m_localTop - m_localBase);
    m_localBase = m_localTop + 1;
    m_localTop = std::fill_n(m_localBase, count, Cell::ofInteger(0));
    *m_call++ = fixedCode(Op::LocalsLeave);
}
