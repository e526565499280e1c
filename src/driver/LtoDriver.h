#pragma once

#include "driver/LtoLibrary.h"
#include "driver/LtoOptions.h"
#include "driver/LtoResolver.h"

#include <list>

// One run of the link-time-optimisation driver: reads the list of inputs, leaves ELF objects and archives to
// the linker, gives bitcode to the LTO library, has it compile all of it into one object, and writes that and
// the list of what the linker still has to read. Outputs are touched only after the compilation.
class LtoDriver
{
public:
    explicit LtoDriver(const LtoOptions &options) : m_options(options) {}

    // Throws HException with the whole line for the user.
    void run();

private:
    struct Input
    {
        QByteArray path;
        ByteImage image;
        std::unique_ptr<ElfFile> object; // for an ELF object
    };

    QList<QByteArray> readInputList() const;
    void createCodeGenerator();
    void classify(Input &input);
    void addModule(const Input &input);
    void writeOutputs(QByteArrayView object) const;

    const LtoOptions &m_options;
    LtoLibrary m_library;
    LtoCodeGenerator *m_codeGenerator = nullptr;
    std::list<Input> m_inputs; // symbol names point into them
    QList<QByteArray> m_linkerFiles;
    LtoResolver m_resolver;
};
