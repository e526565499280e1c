#include "script/engine/ESContext.h"

#include "script/engine/ESGenerator.h"
#include "script/engine/ESInterpreter.h"
#include "script/engine/ESNatives.h"
#include "script/engine/ESParser.h"

#include <QFile>
#include <sys/mman.h>

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 mostFrames = 0x40000;
constexpr qsizetype nativeStackBytes = 4 << 20; // that scripts and natives calling each other may use
constexpr int deepestLoad = 4;
constexpr int stepSlot = 2; // of ESContext's virtual operations
constexpr int deepestTrace = 64;

// Where the outermost call into any context of this thread stands on the native stack.
thread_local const char *nativeStackStart = nullptr;

class NativeStackStart
{
public:
    NativeStackStart() : m_isOutermost(!nativeStackStart)
    {
        if (m_isOutermost)
            nativeStackStart = static_cast<const char *>(__builtin_frame_address(0));
    }
    ~NativeStackStart()
    {
        if (m_isOutermost)
            nativeStackStart = nullptr;
    }

private:
    bool m_isOutermost;
};

template <typename T>
T *reserve(size_t count)
{
    void *memory =
        mmap(nullptr, count * sizeof(T), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
        throw ESFatalError(u"out of memory"_s);
    return static_cast<T *>(memory);
}

} // namespace

// ---- Set-up

ESContext::ESContext(quint64 memoryLimitBytes) : m_arena(memoryLimitBytes)
{
    m_stack = reserve<ESValue>(stackValues);
    m_stackEnd = m_stack + stackValues;
    m_frames = reserve<ESFrame>(mostFrames);
    m_framesEnd = m_frames + mostFrames;
    m_frame = new (m_frames) ESFrame;
    m_frame->base = m_stack;
    m_frame->flags = ESFrame::isEntry;
    m_ownStep = esVirtualOperation(this, stepSlot); // a subclass's table isn't in place yet
    makeLibrary();
}

ESContext::~ESContext()
{
    munmap(m_stack, stackValues * sizeof(ESValue));
    munmap(m_frames, mostFrames * sizeof(ESFrame));
}

void ESContext::makeLibrary()
{
    const auto own = [this](auto *made) {
        m_ownedClasses.emplace_back(made);
        return made;
    };
    m_classes.global = own(new ESNativeGlobal);
    m_classes.array = own(new ESNativeArray);
    m_classes.function = own(new ESNativeFunction);
    for (int kind = 0; kind < esErrorKinds; ++kind)
        m_classes.errors[kind] = own(new ESNativeError(ESErrorKind(kind)));
    m_classes.number = own(new ESNativeNumber);
    m_classes.string = own(new ESNativeString);
    m_classes.boolean = own(new ESNativeBoolean);
    m_classes.date = own(new ESNativeDate);
    m_classes.object = own(new ESNativeObject);
    m_classes.math = own(new ESNativeMath);
    m_classes.activation = own(new ESActivation);

    m_prototypes.object = makeObject(nullptr, m_classes.object);
    m_plainShape = rootShape(m_prototypes.object, m_classes.object);
    const auto prototype = [this](ESClass *esClass) { return makeObject(m_prototypes.object, esClass); };
    m_prototypes.function = prototype(m_classes.function);
    m_prototypes.array = prototype(m_classes.array);
    m_prototypes.string = prototype(m_classes.string);
    m_prototypes.number = prototype(m_classes.number);
    m_prototypes.boolean = prototype(m_classes.boolean);
    m_prototypes.date = prototype(m_classes.date);
    m_prototypes.error = prototype(m_classes.errors[0]);

    // Function.prototype is a function too; its class gives undefined for it.
    ESObjectExtra *extra = extraOf(m_prototypes.function);
    extra->primitive = esIntern("Function.prototype");
    extra->call = m_arena.make<ESClosure>();
    extra->nativeId = 0;

    m_global = prototype(m_classes.global);
    m_global->m_shape = m_global->m_shape->copyOwned(m_arena);
    setPrimitive(m_global, esIntern("[object global]"));
    m_arrayShape = rootShape(m_prototypes.array, m_classes.array)
                       ->child(m_arena, esNames().length, esDontEnumerate | esDontDelete);
    constexpr quint32 fixed = esReadOnly | esDontEnumerate | esDontDelete;
    m_functionShape = rootShape(m_prototypes.function, m_classes.function)
                          ->child(m_arena, esNames().length, fixed)
                          ->child(m_arena, esNames().prototype, esDontEnumerate);

    const auto error = [this](ESErrorKind kind) { return m_classes.errors[int(kind)]; };
    using enum ESErrorKind;
    for (ESClass *esClass :
         {m_classes.object, m_classes.boolean, m_classes.array, m_classes.global, error(Error), error(RangeError),
          error(ReferenceError), error(SyntaxError), error(TypeError), error(EvalError), m_classes.number,
          m_classes.math, m_classes.string, m_classes.function, m_classes.date})
        esClass->init(*this);
}

void ESContext::addClass(std::unique_ptr<ESClass> esClass)
{
    esClass->init(*this);
    m_ownedClasses.push_back(std::move(esClass));
}

// ---- Classes and natives

ESValue ESClass::get(ESContext &, ESObject *object, ESSymbol *name)
{
    return ESContext::ordinaryGet(object, name);
}

void ESClass::put(ESContext &context, ESObject *object, ESSymbol *name, ESValue value)
{
    context.ordinaryPut(object, name, value);
}

ESValue ESClass::call(ESContext &, const ESCall &)
{
    return {};
}

ESObject *ESClass::construct(ESContext &, const ESCall &)
{
    return nullptr;
}

void ESClass::init(ESContext &context)
{
    context.put(context.global(), esIntern(m_name), context.makeObject(context.prototypes().object, this));
}

ESObject *ESContext::makeFunction(ESClass *esClass, const char *fullName, const ESNativeRow &row, int id)
{
    ESObject *function = makeObject(m_prototypes.function, esClass);
    ESObjectExtra *extra = extraOf(function);
    extra->primitive = esIntern(fullName);
    extra->call = m_arena.make<ESClosure>();
    extra->call->parameterCount = quint32(row.arity);
    extra->nativeId = id;
    extra->native = row.function;
    defineProperty(function, esReadOnly | esDontEnumerate | esDontDelete, esNames().length, row.arity);
    if (row.help)
        defineProperty(function, esDontEnumerate, esNames().help, makeString(QString::fromUtf8(row.help)));
    return function;
}

void ESContext::install(ESObject *owner, ESClass *esClass, const char *prefix, std::span<const ESNativeRow> rows,
                        int firstId)
{
    for (const ESNativeRow &row : rows)
        defineProperty(owner, esDontEnumerate, esIntern(row.name),
                       makeFunction(esClass, (QByteArray(prefix) + row.name).constData(), row, firstId++));
}

ESObject *ESContext::installConstructor(ESClass *esClass, const ESNativeRow &row, ESObject *prototype)
{
    ESObject *constructor = makeFunction(esClass, row.name, row, 0);
    constructor->m_extra->construct = constructor->m_extra->call;
    defineProperty(constructor, esReadOnly | esDontEnumerate | esDontDelete, esNames().prototype, prototype);
    defineProperty(prototype, esDontEnumerate, esNames().constructor, constructor);
    defineProperty(m_global, esDontEnumerate, esIntern(row.name), constructor);
    return constructor;
}

// ---- Calls

// While it lives the state of the interpreter is that of what runs inside; afterwards it is as it was.
class ESContext::Run
{
public:
    explicit Run(ESContext &context)
        : m_context(context), m_frame(context.m_frame), m_handlers(context.m_handlers.size())
    {}
    ~Run()
    {
        m_context.m_frame = m_frame;
        m_context.m_handlers.resize(m_handlers);
    }

private:
    ESContext &m_context;
    ESFrame *m_frame;
    size_t m_handlers;
    NativeStackStart m_start;
};

bool ESContext::isNativeStackLow() const
{
    return nativeStackStart &&
           nativeStackStart - static_cast<const char *>(__builtin_frame_address(0)) > nativeStackBytes;
}

// A frame for a native function whose arguments are copied to the free end of the stack.
ESFrame *ESContext::nativeFrame(std::span<const ESValue> arguments, quint32 count)
{
    ESValue *argv = m_frame->top();
    if (isNativeStackLow() || m_frame + 1 == m_framesEnd || size_t(m_stackEnd - argv) < count)
        fatal("virtual machine stack too small");
    std::copy(arguments.begin(), arguments.end(), argv);
    std::fill(argv + arguments.size(), argv + count, ESValue());
    ESFrame *frame = new (m_frame + 1) ESFrame;
    frame->base = argv;
    frame->nativeCount = count;
    return frame;
}

ESValue ESContext::call(ESObject *function, ESValue self, std::span<const ESValue> arguments)
{
    if (!function || !function->isCallable())
        raise(ESErrorKind::TypeError, "can only call function objects");
    const Run run(*this);
    ESObjectExtra *extra = function->m_extra;
    if (extra->nativeId >= 0) {
        ESFrame *frame = nativeFrame(arguments, std::max(extra->call->parameterCount, quint32(arguments.size())));
        frame->function = function;
        m_frame = frame;
        const ESCall made = {function, self, int(frame->nativeCount), frame->base};
        return extra->native ? extra->native(*this, made) : function->esClass()->call(*this, made);
    }
    if (!extra->program)
        extra->program = ESInterpreter::programOf(*this, *extra->call->code);
    ESValue *argv = m_frame->top();
    if (isNativeStackLow() || size_t(m_stackEnd - argv) < arguments.size())
        fatal("virtual machine stack too small");
    std::copy(arguments.begin(), arguments.end(), argv);
    ESFrame *frame = ESInterpreter::enter(*this, m_frame, function, extra->program, extra->call->scope, self, argv,
                                          quint32(arguments.size()));
    frame->flags = ESFrame::isEntry;
    return ESInterpreter::run(*this);
}

ESObject *ESContext::construct(ESObject *constructor, std::span<const ESValue> arguments)
{
    if (!constructor || !constructor->isConstructor())
        raise(ESErrorKind::TypeError, "new must be given a constructor object");
    const Run run(*this);
    ESObjectExtra *extra = constructor->m_extra;
    if (extra->nativeId >= 0) {
        ESFrame *frame = nativeFrame(arguments, std::max(extra->call->parameterCount, quint32(arguments.size())));
        frame->function = constructor;
        m_frame = frame;
        const ESCall made = {constructor, {}, int(frame->nativeCount), frame->base, true};
        if (extra->native) {
            const ESValue result = extra->native(*this, made);
            if (result.isObject())
                return result.object;
        } else if (ESObject *object = constructor->esClass()->construct(*this, made)) {
            return object;
        } else {
            ESObject *instance = ESInterpreter::instanceFor(*this, constructor);
            const ESValue result = call(constructor, instance, arguments);
            return result.isObject() ? result.object : instance;
        }
        raise(ESErrorKind::Error, toQString(constructor->primitive()) + u" failed to generate an object"_s);
    }
    ESObject *instance = ESInterpreter::instanceFor(*this, constructor);
    const ESValue result = call(constructor, instance, arguments);
    return result.isObject() ? result.object : instance;
}

// ---- Compiling and running

quint32 ESContext::globalSlot(ESSymbol *name)
{
    const quint32 slot = m_global->m_shape->find(name);
    if (slot != ESShape::notFound)
        return slot;
    addProperty(m_global, name, 0, {});
    return m_global->m_shape->slotCount() - 1;
}

ESShape *ESContext::activationShape(const ESCode &code)
{
    ESShape *shape = rootShape(nullptr, m_classes.activation)->copyOwned(m_arena);
    for (const auto *names : {&code.parameters, &code.locals})
        for (const ESCode::Name &name : *names) {
            ESShape::append(m_arena, shape->m_table, name.symbol, name.flags);
            ++shape->m_count;
        }
    shape->m_shared = true; // by the activations of this function
    return shape;
}

std::unique_ptr<ESCode> ESContext::compile(const QString &source, ESTree &tree,
                                           const std::function<ESFunctionNode *(ESParser &)> &parse)
{
    try {
        ESParser parser(*this, source, tree);
        ESFunctionNode *chief = parse(parser);
        quint32 index = quint32(m_codes.size());
        for (const auto &function : tree.functions) {
            function->index = index++;
            function->code->source = m_source;
        }
        for (const auto &function : tree.functions)
            if (function->body)
                ESGenerator(*this, *function, m_warnings).generate();
        std::unique_ptr<ESCode> program = std::move(chief->code);
        for (const auto &function : tree.functions)
            m_codes.push_back(std::move(function->code)); // null for the program itself
        return program;
    } catch (const ESSyntaxError &error) {
        m_compileLine = int(error.line);
        raise(ESErrorKind::SyntaxError, error.message);
    }
}

ESCompletion ESContext::evaluate(const QString &fileName, const QString &source)
{
    const Run run(*this);
    m_stepping = esVirtualOperation(this, stepSlot) != m_ownStep;
    auto present = std::make_shared<ESSource>();
    present->fileName = fileName;
    present->text = source;
    m_source = present;
    try {
        if (isNativeStackLow())
            fatal("virtual machine stack too small");
        std::unique_ptr<ESCode> code;
        {
            ESTree tree;
            code = compile(source, tree, [](ESParser &parser) { return parser.parseProgram(); });
        }
        ESProgram *program = ESInterpreter::programOf(*this, *code);
        const bool isOutermost = m_frame == m_frames;
        ESFrame *frame = ESInterpreter::enter(*this, m_frame, nullptr, program, nullptr, m_global, m_frame->top(), 0);
        frame->flags = ESFrame::isEntry;
        try {
            return {ESCompletion::Normal, ESInterpreter::run(*this), {}};
        } catch (const ESStopped &) {
            if (!isOutermost)
                throw;
            return {};
        } catch (ESFatalError &error) { // while the code that the frames refer to is still there
            if (error.place.isEmpty())
                error.place = place();
            throw;
        }
    } catch (const ESException &exception) {
        ESCompletion completion{ESCompletion::Exception, exception.value(), {}};
        if (isError(exception.value()))
            if (const ESValue *message = exception.value().object->find(esNames().message);
                message && message->isString())
                completion.text = view(message->string).toString();
        return completion;
    }
}

QString ESContext::list(const QString &fileName, const QString &source)
{
    const Run run(*this);
    auto present = std::make_shared<ESSource>();
    present->fileName = fileName;
    present->text = source;
    m_source = present;
    const size_t before = m_codes.size();
    ESTree tree;
    const auto program = compile(source, tree, [](ESParser &parser) { return parser.parseProgram(); });
    QString text = program->listing(m_global);
    for (size_t i = before; i < m_codes.size(); ++i)
        if (m_codes[i])
            text +=
                u"\nfunction #%1 %2\n"_s.arg(i).arg(m_codes[i]->name ? m_codes[i]->name->text() : u"(anonymous)"_s) +
                m_codes[i]->listing(m_global);
    return text;
}

ESObject *ESContext::compileFunction(const QString &parameters, const QString &body)
{
    ESTree tree;
    ESFunctionNode *made = nullptr;
    const auto code = compile(body, tree, [&](ESParser &parser) {
        made = parser.parseFunction(parameters, body);
        return made->enclosing;
    });
    return ESInterpreter::closure(*this, m_codes[made->index].get(), nullptr);
}

bool ESContext::load(const QString &name)
{
    QFile file(name);
    for (qsizetype i = 0; !file.open(QIODevice::ReadOnly); ++i) {
        if (i == m_searchPaths.size() || QFile::exists(file.fileName()))
            return false;
        file.setFileName(m_searchPaths[i] + u'/' + name);
    }
    if (m_loadDepth == deepestLoad)
        throw ESFatalError(u"script recursion limit reached"_s);
    struct Restore
    {
        ESContext &context;
        std::shared_ptr<const ESSource> source;
        ~Restore()
        {
            --context.m_loadDepth;
            if (source)
                context.m_source = source;
        }
    } const restore{*this, m_source};
    ++m_loadDepth;
    QString text = QString::fromUtf8(file.readAll());
    if (const qsizetype end = text.indexOf(QChar(0)); end >= 0)
        text.truncate(end);
    const ESCompletion completion = evaluate(file.fileName(), text);
    if (completion.kind == ESCompletion::Exception)
        throw ESException(completion.value);
    return true;
}

// ---- Errors

void ESContext::fatal(const char *latin1)
{
    throw ESFatalError(QString::fromLatin1(latin1));
}

void ESContext::raise(ESErrorKind kind, const char *latin1)
{
    raise(kind, QString::fromLatin1(latin1));
}

void ESContext::raise(ESErrorKind kind, const QString &message)
{
    const ESValue text = esIntern(message);
    ESObject *error = construct(m_errors[int(kind)], {&text, 1});
    describePosition(error);
    m_compileLine = 0;
    throw ESException(error);
}

bool ESContext::isError(ESValue value) const
{
    if (!value.isObject())
        return false;
    for (const ESObject *object = value.object->prototype(); object; object = object->prototype())
        if (object == m_prototypes.error)
            return true;
    return false;
}

QString ESContext::fileName() const
{
    return m_source ? m_source->fileName : QString();
}

int ESContext::currentLine() const
{
    if (m_compileLine)
        return m_compileLine;
    for (const ESFrame *frame = m_frame; frame > m_frames; --frame)
        if (frame->program)
            return frame->line();
    return 0;
}

QString ESContext::place() const
{
    for (const ESFrame *frame = m_frame; frame > m_frames; --frame) {
        const ESSource *source = frame->program ? frame->program->code->source.get() : nullptr;
        if (source)
            return u"%1:%2\n%3"_s.arg(source->fileName, QString::number(frame->line()), source->line(frame->line()));
    }
    return {};
}

QString ESContext::stackTrace() const
{
    QStringList rows;
    if (m_compileLine)
        rows += u"(%1:%2)"_s.arg(fileName()).arg(m_compileLine);
    for (const ESFrame *frame = m_frame; frame > m_frames && rows.size() < deepestTrace; --frame) {
        if (!frame->program)
            continue;
        const ESCode &code = *frame->program->code;
        const QString name = code.isProgram ? u"(program)"_s : code.name ? code.name->text() : u"(anonymous)"_s;
        rows += u"%1 (%2:%3)"_s.arg(name, code.source ? code.source->fileName : QString()).arg(frame->line());
    }
    return rows.join(u'\n');
}

void ESContext::describePosition(ESObject *error)
{
    if (m_source && !m_source->fileName.isEmpty())
        put(error, esNames().fileName, makeString(m_source->fileName));
    const int line = currentLine();
    if (const QString text = m_source ? m_source->line(line) : QString(); !text.isNull()) {
        put(error, esNames().lineNumber, line);
        put(error, esNames().sourceLine, makeString(text));
    }
    defineProperty(error, esDontEnumerate, esNames().stack, makeString(stackTrace()));
}

void ESContext::describeThrown(const ESValue &thrown)
{
    if (isError(thrown) && !thrown.object->find(esNames().stack))
        describePosition(thrown.object);
}
