// Word lists and the search order.
#include "forth/machine/FSContext.h"
#include "forth/machine/ForthWords.h"

using namespace Qt::StringLiterals;

namespace {

// What a found word pushes.
void pushFound(FSContext &context, pcode *word)
{
    context.push(Cell::ofCode(word->codeAddress()));
    context.pushInteger(word->isImmediate() ? 1 : -1);
}

std::string popName(FSContext &context)
{
    return context.popString().toUpper().toStdString();
}

} // namespace

void ForthWords::forth(FSContext &context)
{
    context.order().replaceTop(context.forthList());
}

void ForthWords::only(FSContext &context)
{
    context.order().set({context.forthList()});
}

void ForthWords::also(FSContext &context)
{
    context.order().pushTop(context.order().top());
}

void ForthWords::previous(FSContext &context)
{
    context.order().dropTop();
}

void ForthWords::definitions(FSContext &context)
{
    context.setCurrentList(context.order().top());
}

void ForthWords::vocabulary(FSContext &context)
{
    if (context.order().lists().empty())
        throw ForthException(ForthError::SearchOrderUnderflow, u"No search order (VOCABULARY)"_s);
    const std::string name(context.parseWord());
    WordList *list = context.newWordList(QString::fromStdString(name));
    context.enter(context.make<FVocabularyChild>(name, list));
}

void ForthWords::wordList(FSContext &context)
{
    context.pushInteger(context.newWordList({})->number());
}

void ForthWords::forthWordList(FSContext &context)
{
    context.pushInteger(context.forthList()->number());
}

void ForthWords::getCurrent(FSContext &context)
{
    context.pushInteger(context.currentList()->number());
}

void ForthWords::setCurrent(FSContext &context)
{
    context.setCurrentList(context.wordList(context.popInteger()));
}

// The list that is searched first is the deepest, for SET-ORDER as for GET-ORDER.
void ForthWords::getOrder(FSContext &context)
{
    const auto &lists = context.order().lists();
    for (auto list = lists.rbegin(); list != lists.rend(); ++list)
        context.pushInteger((*list)->number());
    context.pushInteger(qint64(lists.size()));
}

void ForthWords::setOrder(FSContext &context)
{
    const qint64 count = context.popInteger();
    if (count == -1)
        return only(context);
    if (count > qint64(SearchOrder::capacity))
        throw ForthException(ForthError::SearchOrderOverflow);
    if (count < 0)
        throw ForthException(ForthError::InvalidArgument);
    std::vector<WordList *> lists;
    for (qint64 i = 0; i < count; ++i)
        lists.push_back(context.wordList(context.popInteger()));
    context.order().set(std::move(lists));
}

void ForthWords::find(FSContext &context)
{
    const Cell name = context.pop();
    if (pcode *word = context.find(name.toString().toUpper().toStdString())) {
        pushFound(context, word);
    } else {
        context.push(name);
        context.pushInteger(0);
    }
}

void ForthWords::searchWordList(FSContext &context)
{
    const WordList *list = context.wordList(context.popInteger());
    if (pcode *word = list->find(popName(context)))
        pushFound(context, word);
    else
        context.pushInteger(0);
}

void ForthWords::words(FSContext &context)
{
    constexpr qsizetype lastColumn = 79;
    QString text;
    qsizetype column = 0;
    for (const pcode *word : context.order().top()->sorted()) {
        const QString name = word->displayName() + u' ';
        if (column + name.size() > lastColumn) {
            text += u'\n';
            column = 0;
        }
        text += name;
        column += name.size();
    }
    context.output(text + u'\n');
}

// The lists in the order in which they are searched, then where definitions go.
void ForthWords::order(FSContext &context)
{
    QString text = u"Search: "_s;
    const auto &lists = context.order().lists();
    for (auto list = lists.rbegin(); list != lists.rend(); ++list)
        text += (*list)->displayName() + u' ';
    context.output(text + u"\nCurrent: "_s + context.currentList()->displayName() + u" \n"_s);
}
