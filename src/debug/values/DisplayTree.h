#pragma once

#include "debug/values/DwarfExpressionEvaluator.h"
#include "debug/values/VariableListBuilder.h"

// Turns a typed place into rows for a watch window: members, elements, what is behind pointers, and containers by
// what they hold (see TypeDescriptions). The builder receives the rows and says how far to go.
//
// What can't be read becomes a row that says so. However damaged the data or the debug information are, a tree ends:
// it is at most maximumDepth deep and has at most maximumRows rows.
class DisplayTree
{
public:
    static constexpr int maximumDepth = 100;
    static constexpr int maximumRows = 200'000;

    DisplayTree(DwarfExpressionEvaluator &evaluator, VariableListBuilder &builder)
        : m_evaluator(evaluator), m_builder(builder)
    {}

    // Rows within rows are left out below that many levels; 0: the first row alone.
    void setMaximumLevel(int level) { m_maximumLevel = level; }
    void setMaximumRows(int rows) { m_maximumRows = rows; }

    // The row or rows of a value, or of the place that it marks. Throws when not even the first row can be made.
    void show(const QString &name, const QString &expression, const ExpressionValue &value);
    void expandVariable(const QString &name, const QString &expression, const VarInfo &place, int depth = 0);

    // Whether there would have been more rows.
    bool isTruncated() const { return m_isTruncated; }

private:
    friend class DescribedRows;
    using Entry = DwarfDebuggingInformationEntry;
    using Key = std::pair<DwarfCompilationUnit *, quint32>;
    struct Row // what all rows have
    {
        QString name, expression, typeName, location;
    };
    struct Description
    {
        const XMLElement *element = nullptr;
        QStringList arguments;
    };

    MemoryBlockInterface &block() { return m_evaluator.block(); }
    static ExpressionValue summaryOf(Entry type); // the value of a structure's row
    bool takeRow();
    bool isBelowLimit() const { return m_level < m_maximumLevel; }
    QString typeName(Entry type);
    Row rowAt(const QString &name, const QString &expression, Entry type, const VarInfo &place);
    VarInfo placeAtCursor(const VarInfo &place, Entry type);
    template <typename Read>
    void addRow(const Row &row, Read read);
    void addValue(const Row &row, const ExpressionValue &value);
    void addError(const Row &row, const QString &message);
    VariableListBuilder::Token beginStruct(const Row &row, const ExpressionValue &value);
    void endStruct(VariableListBuilder::Token token);
    VariableListBuilder::Token beginArray(const Row &row, const ExpressionValue &value);
    void endArray(VariableListBuilder::Token token);

    void expand(const QString &name, const QString &expression, Entry type, const VarInfo &place, int depth);
    void expandByTag(const QString &name, const QString &expression, Entry type, const VarInfo &place, int depth);
    void expandStruct(const QString &name, const QString &expression, Entry type, const VarInfo &place,
                      const QString &separator, int depth);
    void expandMembers(const QString &expression, Entry type, const VarInfo &place, const QString &separator,
                       int depth);
    void expandBase(const QString &expression, Entry type, const TypeMember &member, const VarInfo &place,
                    quint32 start, int depth);
    void expandStatic(Entry type, const TypeMember &member, int depth);
    void expandFunctions(const QString &expression, Entry type, const VarInfo &place, const QString &separator,
                         int depth);
    quint32 addressOfFunction(Entry type, Entry function, const VarInfo &place);
    void expandBitField(const Row &row, Entry type, const TypeMember &member, const VarInfo &place, quint32 start);
    void expandArray(const QString &name, const QString &expression, Entry type, const VarInfo &place, int depth);
    void expandPointer(const QString &name, const QString &expression, Entry type, const VarInfo &place, int depth);
    void followPointer(const Row &row, Entry target, quint32 pointer, int depth);
    void listBehindPointer(const Row &row, Entry target, quint32 pointer, quint32 count, int depth);
    void expandComplex(const Row &row, Entry type, const VarInfo &place);
    QString functionNames(const VarInfo &place);
    QByteArray textBytes(quint32 count);

    Description descriptionOf(Entry type, const VarInfo &place);

    DwarfExpressionEvaluator &m_evaluator;
    VariableListBuilder &m_builder;
    int m_maximumLevel = maximumDepth, m_maximumRows = maximumRows;
    int m_level = 0; // of open rows
    int m_rows = 0;
    int m_applied = 0; // descriptions within each other
    bool m_isTruncated = false;
    std::map<Key, QString> m_typeNames;
    std::map<Key, Description> m_descriptions;
};
