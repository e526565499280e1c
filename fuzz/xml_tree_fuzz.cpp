#include "xml/tree/XMLDocument.h"

#include <cstdlib>

// Any bytes parse, with and without text; what parsed can be copied, and what is written of it reads back to
// the same text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (const bool keepText : {false, true}) {
        XMLDocument document(keepText);
        document.parse(QByteArrayView(data, qsizetype(size)));
        if (!document.root())
            continue;
        document.setVersion({}); // the prologue is written raw
        document.setEncoding({});
        const QByteArray text = document.text();
        document.setRoot(std::unique_ptr<XMLElement>(document.copyTree(document.root()).release()->toElement()));
        if (document.text() != text)
            std::abort();
        // Not sure with comments and sections, which may hold what ends them, and an empty element with an
        // empty name, which looks like an end tag.
        XMLDocument again(keepText);
        if (!text.contains("<!") && !text.contains("</>") && !again.parse(text))
            std::abort();
    }
    return 0;
}
