#pragma once

#include "script/engine/ESNode.h"

class ESContext;

// Makes the tree of a program or of a function. Throws ESSyntaxError.
class ESParser
{
public:
    ESParser(ESContext &context, const QString &source, ESTree &tree);

    ESFunctionNode *parseProgram();
    // The two texts of the Function constructor.
    ESFunctionNode *parseFunction(const QString &parameters, const QString &body);
    quint32 line() const { return m_lexer.line(); }

private:
    ESNode *make(quint32 kind, quint32 line, ESNode *a = nullptr, ESNode *b = nullptr);
    [[noreturn]] void fail(const QString &message) const;
    void expect(quint32 token);
    bool accept(quint32 token);
    ESSymbol *expectIdentifier();
    void endStatement();
    void checkDepth();

    ESNode *parseList(bool isCases = false);
    ESNode *parseBlock();
    ESNode *parseStatement();
    ESNode *parseFor();
    ESNode *parseVariables(int &count);
    ESNode *parseSwitch();
    ESNode *parseTry();
    ESNode *parseScoped(ESNode *node);

    ESNode *parseExpression();
    ESNode *parseAssignment();
    ESNode *parseConditional();
    ESNode *parseBinary(int level);
    ESNode *parseUnary();
    ESNode *parsePostfix();
    ESNode *parseMember(bool isCallee);
    ESNode *parsePrimary();
    ESNode *parseArguments();
    ESNode *parseArray();
    ESNode *parseObject();
    ESNode *parseFunctionLiteral(bool needsName);
    void parseParameters(ESFunctionNode *function, quint32 end);

    ESFunctionNode *openFunction();
    void closeFunction(ESFunctionNode *function);
    void declare(ESSymbol *name, quint32 flags);
    ESSymbol *declareTemporary();
    ESNode *makeName(ESSymbol *name, quint32 line);
    ESNode *makeAssignment(ESSymbol *name, ESNode *value);

    ESContext &m_context;
    ESLexer m_lexer;
    ESTree &m_tree;
    ESFunctionNode *m_function = nullptr;
    std::vector<std::unique_ptr<ESFunctionNode>> m_open;
    int m_scopes = 0; // `with` and `catch` bodies around this place, of the present function
};

// "CG1", "CG2" and so on: names that no source text has written.
ESSymbol *esGeneratedName();
