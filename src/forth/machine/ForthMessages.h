#pragma once

#include <QString>

// A place in a source text.
struct ForthLocation
{
    QString source; // a file's name, or what the text goes by; empty for built-in words
    int line = 0;   // from 1
};

// How the machine speaks.
class ForthScriptMessageInterface
{
public:
    virtual ~ForthScriptMessageInterface() = default;
    virtual void output(const QString &text) = 0;
    virtual void error(const QString &text) = 0;
    virtual void notice(const ForthLocation &location, const QString &text) = 0;
};
