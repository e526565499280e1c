#pragma once

#include <QString>
#include <QStringList>

// What a program asks of the formatted input and output of newlib, by the codes of -printf= and -scanf=.
//
//   i, l        integers up to long           the small library has them
//   ll          long long                     full library
//   d, f        and floating point            small library with its floating-point part
//   dll, fll    both                          full library
//   then p      width and precision           in both
//   then w      wide characters               full library
//   then c      %[...] (scanf)                in both
struct CLibrary
{
    bool isFull = false;                          // newlib; else newlib-nano
    bool printfFloat = false, scanfFloat = false; // parts of newlib-nano that are linked when asked for

    // Throws HException for a code that isn't one.
    static CLibrary forCodes(const QString &printfCode, const QString &scanfCode);
    // The symbols that bring the parts in.
    QStringList wantedSymbols() const;
};
