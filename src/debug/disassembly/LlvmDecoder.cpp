#include "debug/disassembly/LlvmDecoder.h"

#include "base/HException.h"
#include "base/SharedLibrary.h"

#include <QLoggingCategory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(disassemblyTrace, "debug/disassembly", QtWarningMsg)

namespace {

// The names under which the loader finds the library, the version that the tests run with first. Later versions call
// it libLLVM.so.<version>.
constexpr const char *libraryNames[] = {
    "libLLVM-14.so.1", "libLLVM-15.so.1", "libLLVM-16.so.1", "libLLVM-17.so.1",
    "libLLVM.so.18.1", "libLLVM.so.19.1", "libLLVM.so.20.1", "libLLVM-13.so.1",
};

// llvm-c/Disassembler.h and llvm-c/DisassemblerTypes.h
using SymbolLookupCallback = const char *(void *, quint64, quint64 *, quint64, const char **);
using CreateDisasmCPUFeatures = void *(const char *triple, const char *cpu, const char *features, void *callbackData,
                                       int tagType, void *operandInformation, SymbolLookupCallback *);
using DisasmInstruction = size_t(void *context, quint8 *bytes, quint64 size, quint64 address, char *text,
                                 size_t textSize);
using DisasmDispose = void(void *context);
using InitializeTarget = void();

constexpr quint64 referenceOfBranch = 1; // LLVMDisassembler_ReferenceType_In_Branch

struct Library
{
    Library()
    {
        QString error;
        for (const char *name : libraryNames) {
            if (library.load(QString::fromLatin1(name))) {
                qCDebug(disassemblyTrace, "%s", name);
                break;
            }
            if (error.isEmpty())
                error = library.errorString();
        }
        if (!library.isLoaded())
            throw HException(
                u"LLVM's library, which disassembles, can't be loaded (Debian: libllvm14): %1"_s.arg(error));
        create = library.function<CreateDisasmCPUFeatures>("LLVMCreateDisasmCPUFeatures");
        decode = library.function<DisasmInstruction>("LLVMDisasmInstruction");
        dispose = library.function<DisasmDispose>("LLVMDisasmDispose");
        if (!create || !decode || !dispose)
            throw HException(u"LLVM's library has no disassembler"_s);
        for (const char *target : {"ARM", "RISCV"}) {
            for (const char *part : {"TargetInfo", "TargetMC", "Disassembler"}) {
                // A library that was built without the target lacks its functions.
                const QByteArray name = QByteArray("LLVMInitialize") + target + part;
                if (auto *initialize = library.function<InitializeTarget>(name.constData()))
                    initialize();
            }
        }
        library.release(); // it registers exit handlers
    }

    SharedLibrary library;
    CreateDisasmCPUFeatures *create;
    DisasmInstruction *decode;
    DisasmDispose *dispose;
};

const Library &llvm()
{
    static const Library library;
    return library;
}

} // namespace

LlvmDecoder::LlvmDecoder(const char *triple, const char *features)
    : m_context(llvm().create(triple, "", features, this, 0, nullptr, lookUpSymbol))
{
    qCDebug(disassemblyTrace, "%s with %s", triple, features);
    if (!m_context)
        throw HException(u"LLVM's library has no disassembler for %1"_s.arg(QString::fromLatin1(triple)));
}

LlvmDecoder::~LlvmDecoder()
{
    llvm().dispose(m_context);
}

// Told of operands that may be addresses. Without a name for one the decoder writes a branch's target as a number.
const char *LlvmDecoder::lookUpSymbol(void *decoder, quint64 value, quint64 *referenceType, quint64,
                                      const char **referenceName)
{
    if (*referenceType == referenceOfBranch)
        static_cast<LlvmDecoder *>(decoder)->m_branchTarget = quint32(value);
    *referenceType = 0;
    *referenceName = nullptr;
    return nullptr;
}

// The text is "\tmnemonic\toperands".
quint32 LlvmDecoder::decode(quint32 address, std::span<const quint8> bytes)
{
    m_branchTarget.reset();
    m_mnemonic = m_operands = {};
    const size_t length =
        llvm().decode(m_context, const_cast<quint8 *>(bytes.data()), bytes.size(), address, m_text, sizeof m_text);
    if (length == 0)
        return 0;
    const QByteArrayView text = QByteArrayView(m_text).trimmed();
    const qsizetype tab = text.indexOf('\t');
    m_mnemonic = tab < 0 ? text : text.first(tab);
    m_operands = tab < 0 ? QByteArrayView() : text.sliced(tab + 1);
    return quint32(length);
}
