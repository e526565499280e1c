#pragma once

#include <QString>

// What Forth words throw: a code, negative for those of the system, and what there is to say beyond it.
class ForthException
{
public:
    explicit ForthException(qint64 code, const QString &message = {}) : m_code(code), m_message(message) {}

    qint64 code() const { return m_code; }
    const QString &message() const { return m_message; }
    // For the user: the code's text and the message.
    QString text() const;

private:
    qint64 m_code;
    QString m_message;
};

// The codes that the machine itself throws.
struct ForthError
{
    enum : qint64 {
        Abort = -1,
        StackUnderflow = -3,
        StackOverflow = -4,
        ReturnStackOverflow = -5,
        LoopStackOverflow = -7,
        InvalidAddress = -9,
        DivideByZero = -10,
        TypeMismatch = -12,
        UndefinedWord = -13,
        CompileOnly = -14,
        StringOverflow = -17,
        ControlMismatch = -22,
        InvalidArgument = -24,
        InvalidRecursion = -27,
        UserInterrupt = -28,
        Obsolescent = -30,
        FileError = -37,
        UnexpectedEnd = -39,
        SearchOrderOverflow = -49,
        SearchOrderUnderflow = -50,
        ExceptionStackOverflow = -53,
        NoDefinition = -256,
        Unimplemented = -267,
        InvalidWordlist = -266,
        NoStoreMethod = -268,
        SealedDefinition = -270,
    };
};
