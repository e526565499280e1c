#pragma once

#include "debug/dwarf/DwarfDebuggingInformationEntry.h"
#include "xml/tree/XMLDocument.h"

#include <QStringList>

class DwarfExpressionEvaluator;

// A file that says how types are shown by what they hold rather than by what they are made of:
//
//     <TypeDescriptions>
//       <List Name="std::list" Length="..." Head="..." Data="..." Next="..."/>
//     </TypeDescriptions>
//
// Each element stands for the types of its Name, a template's for all instances. Its tag is the way of showing it
// (see DescribedRows), its attributes are expressions in which HEAD is the address of the object and CURRENT that of
// the node visited. Before they are read "$(...)" is replaced:
//
//     $(T)             the type of the object
//     $(T0) $(T1.T0)   an argument of its template, of an argument's template; both are types
//     $(T.name.T0)     steps lead to the types of members and of base classes too
//     $(A0) $(T1.A0)   the same as the text in the type's name, which may be a number
//     $(E)             the expression that stands for the object
//     $[EXPRESSION]    the number that it is, within a name too: $(T$[...])
class TypeDescriptionFile
{
public:
    // Throws an HException that names the file and the line of what is wrong.
    explicit TypeDescriptionFile(const QString &path);

    const XMLElement *root() const { return m_document.root(); }

private:
    QXMLDocument m_document;
};

// The element for a type: one of exactly that name, else of the name of its template, whose arguments are given then.
// Null when there is none.
const XMLElement *findTypeDescription(const XMLElement *root, const QString &name, QStringList &arguments);

// "Pair" and {"int", "Box<char, 2>"} for "Pair<int, Box<char, 2> >"; the name itself for what is no instance.
QString splitTemplateName(const QString &name, QStringList &arguments);

// What the names in "$(...)" stand for.
struct TypeBindings
{
    DwarfDebuggingInformationEntry type;
    QStringList arguments; // of the template, as the type's name tells them
    QString expression;

    // A name that is none stays as it stands.
    QString substituted(DwarfExpressionEvaluator &evaluator, const QString &text) const;

private:
    QString valueOf(DwarfExpressionEvaluator &evaluator, const QString &path) const;
};
