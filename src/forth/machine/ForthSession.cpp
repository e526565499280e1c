#include "forth/machine/ForthSession.h"

#include "base/HException.h"
#include "forth/machine/ForthMessages.h"

#include <QFile>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

QString ForthSession::banner()
{
    return u"Veldane Forth\nCopyright (c) the Veldane authors\nOK\n"_s;
}

QString ForthSession::process(const QString &text, const QString &name)
{
    m_context.output(u" "_s);
    try {
        StringSource source(name, text);
        m_context.interpret(source);
    } catch (const HException &exception) {
        m_context.output(exception.message() + u'\n');
    }
    if (m_context.isCompiling())
        return u">"_s;
    m_context.output(u" OK"_s);
    return {};
}

QString ForthSession::load(const QString &path)
{
    std::FILE *file =
        path == u"-"_s ? fdopen(dup(STDIN_FILENO), "r") : std::fopen(QFile::encodeName(path).constData(), "r");
    struct stat status;
    if (file && fstat(fileno(file), &status) == 0 && S_ISDIR(status.st_mode)) {
        std::fclose(file);
        file = nullptr;
        errno = EISDIR;
    }
    if (!file)
        throw HException(u"cannot open %1: %2"_s.arg(path, QString::fromLocal8Bit(std::strerror(errno))));
    FileSource source(path, file);
    return m_context.interpret(source);
}

QString ForthSession::runText(const QString &text, const QString &name)
{
    QByteArray bytes = text.toUtf8();
    if (bytes.isEmpty())
        return {};
    std::FILE *file = fmemopen(bytes.data(), size_t(bytes.size()), "r");
    if (!file)
        throw HException(u"cannot read %1"_s.arg(name));
    FileSource source(name, file);
    return m_context.interpret(source);
}

QString ForthSession::evaluate(const QString &text)
{
    struct Quiet
    {
        FSContext &context;
        ForthScriptMessageInterface *messages;
        ~Quiet() { context.setMessages(messages); }
    } const quiet{m_context, m_context.messages()};
    m_context.setMessages(nullptr);
    StringSource source(u"evaluate"_s, text);
    return m_context.interpret(source);
}

void ForthSession::registerMethod(const QString &name, MethodWrapper *method)
{
    m_context.enter(m_context.make<Unwrapper>(name.toUpper().toStdString(), method, this), m_context.forthList());
}
