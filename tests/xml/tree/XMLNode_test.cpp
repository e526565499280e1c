#include "xml/tree/XMLNode.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

namespace {

std::unique_ptr<XMLElement> newElement(const char *name)
{
    return std::make_unique<XMLElement>(name);
}

// The children's names, forwards; checks that the chain is whole backwards too.
QByteArray childNames(XMLNode &parent)
{
    QByteArray names;
    const XMLNode *last = nullptr;
    for (XMLNode *child = parent.firstChild(); child; child = child->nextSibling()) {
        EXPECT_EQ(child->parent(), &parent);
        names += child->value();
        last = child;
    }
    EXPECT_EQ(parent.lastChild(), last);
    return names;
}

} // namespace

TEST(XMLNode, LinksChildren)
{
    XMLElement parent("p");
    XMLNode *b = newElement("b").release();
    parent.appendChild(std::unique_ptr<XMLNode>(b));
    parent.prependChild(newElement("a"));
    parent.appendChild(newElement("c"));
    EXPECT_EQ(childNames(parent), "abc");
    EXPECT_EQ(parent.firstChildElement("c"), parent.lastChild());
    EXPECT_EQ(parent.firstChildElement("d"), nullptr);

    const std::unique_ptr<XMLNode> removed = parent.removeChild(b);
    EXPECT_EQ(childNames(parent), "ac");
    EXPECT_EQ(removed.get(), b);
    EXPECT_EQ(b->nextSibling(), parent.lastChild()) << "a walk can go on from a removed node";
    EXPECT_EQ(parent.removeChild(b), nullptr);
    EXPECT_EQ(parent.removeChild(&parent), nullptr);
    EXPECT_EQ(parent.removeChild(nullptr), nullptr);

    EXPECT_EQ(parent.replaceChild(parent.firstChild(), newElement("x"))->value(), "a");
    EXPECT_EQ(parent.replaceChild(parent.lastChild(), newElement("y"))->value(), "c");
    EXPECT_EQ(parent.replaceChild(b, newElement("z"))->value(), "z") << "not a child: nothing is replaced";
    EXPECT_EQ(childNames(parent), "xy");
    parent.removeChild(parent.lastChild());
    parent.removeChild(parent.firstChild());
    EXPECT_EQ(childNames(parent), "");
    parent.prependChild(newElement("q"));
    EXPECT_EQ(childNames(parent), "q");
}

TEST(XMLNode, SplicesChains)
{
    XMLElement from("f");
    for (const char *name : {"1", "2", "3"})
        from.appendChild(newElement(name));
    XMLElement to("t");
    to.insertAfter(nullptr, from.takeChildren());
    EXPECT_EQ(childNames(to), "123");
    EXPECT_EQ(from.firstChild(), nullptr);

    to.insertAfter(to.firstChild(), newElement("a"));
    EXPECT_EQ(childNames(to), "1a23");
    to.insertAfter(to.lastChild(), newElement("b"));
    XMLNodeChain chain = newElement("c");
    chain.append(newElement("d"));
    EXPECT_EQ(chain.last()->value(), "d");
    to.insertAfter(&from, std::move(chain));
    EXPECT_EQ(childNames(to), "1a23bcd");
    to.insertAfter(nullptr, XMLNodeChain());
    const XMLNodeChain dropped = to.takeChildren();
    EXPECT_EQ(dropped.first()->parent(), nullptr);
}

TEST(XMLElement, KeepsAttributesInOrder)
{
    XMLElement element("e");
    for (const char *name : {"a", "b", "c", "d", "e"})
        element.setAttribute(name, name);
    element.setAttribute("B", "upper case");
    element.setAttribute("b", element.attribute("c"));
    element.setAttribute("c", element.attribute("c"));
    element.removeAttribute("a");
    element.removeAttribute("none");
    element.setAttribute("d", QByteArrayView());
    QByteArray all;
    for (const XMLAttribute &attribute : element.attributes())
        all += attribute.name().toByteArray() + '=' + attribute.value().toByteArray() + ' ';
    EXPECT_EQ(all, "b=c c=c d= e=e B=upper case ");
    EXPECT_TRUE(element.hasAttribute("d"));
    EXPECT_TRUE(element.attribute("d").isNull());
    EXPECT_FALSE(element.hasAttribute("a"));
    element.setAttribute("d", "");
    EXPECT_FALSE(element.attribute("d").isNull());
    element.setValue("renamed");
    EXPECT_EQ(element.name(), "renamed");
    element.setValue(QByteArrayView());
    EXPECT_TRUE(element.value().isNull());
}

// Every name is looked for when it is set; with 100,000 of them a search from the first would take minutes.
TEST(XMLElement, TakesManyAttributes)
{
    constexpr int count = 100'000;
    const auto nameOf = [](int i) { return "a" + QByteArray::number(i); };
    XMLElement element("e");
    for (int round = 0; round < 2; ++round)
        for (int i = 0; i < count; ++i)
            element.setAttribute(nameOf(i), QByteArray::number(i + round));
    ASSERT_EQ(element.attributes().size(), size_t(count));
    EXPECT_EQ(element.attribute("a70000"), "70001");
    element.removeAttribute("a69999");
    EXPECT_EQ(element.attribute("a70000"), "70001");
    EXPECT_EQ(element.attributes()[69'999].name(), "a70000");
    EXPECT_FALSE(element.hasAttribute("a69999"));
    element.setAttribute("a69999", "again");
    EXPECT_EQ(element.attributes().back().value(), "again");
    element.removeAttributes();
    EXPECT_FALSE(element.hasAttribute("a1"));
    element.setAttribute("b", "1");
    EXPECT_EQ(element.attributes().size(), 1u);
}
