#pragma once

#include "base/SharedLibrary.h"

#include <QByteArray>
#include <cstddef>

// LLVM's LTO library, loaded at run time: the part of llvm-c/lto.h that the driver calls. The entry points are
// looked up in this order; the handles are opaque.
//   required: result, name, arguments
#define LTO_ENTRY_POINTS(X)                                                                          \
    X(const char *, lto_get_version, ())                                                             \
    X(bool, lto_module_is_object_file_in_memory, (const void *bytes, size_t length))                 \
    X(LtoModule *, lto_module_create_from_memory, (const void *bytes, size_t length))                \
    X(void, lto_module_dispose, (LtoModule *))                                                       \
    X(unsigned int, lto_module_get_num_symbols, (LtoModule *))                                       \
    X(const char *, lto_module_get_symbol_name, (LtoModule *, unsigned int index))                   \
    X(int, lto_module_get_symbol_attribute, (LtoModule *, unsigned int index))                       \
    X(LtoCodeGenerator *, lto_codegen_create, ())                                                    \
    X(bool, lto_codegen_add_module, (LtoCodeGenerator *, LtoModule *))                               \
    X(bool, lto_codegen_set_debug_model, (LtoCodeGenerator *, int model))                            \
    X(void, lto_codegen_set_cpu, (LtoCodeGenerator *, const char *cpu))                              \
    X(void, lto_codegen_add_must_preserve_symbol, (LtoCodeGenerator *, const char *symbol))          \
    X(void, lto_codegen_set_assembler_args, (LtoCodeGenerator *, const char **arguments, int count)) \
    X(const void *, lto_codegen_compile, (LtoCodeGenerator *, size_t * length))                      \
    X(void, lto_codegen_debug_options, (LtoCodeGenerator *, const char *options))
// Newer libraries have these too; older ones do without.
#define LTO_OPTIONAL_ENTRY_POINTS(X)                                      \
    X(void, lto_set_debug_options, (const char *const *words, int count)) \
    X(const char *, lto_get_error_message, ())

struct LtoModule;
struct LtoCodeGenerator;

class LtoLibrary
{
public:
#define LTO_MEMBER(result, name, arguments) result(*name) arguments = nullptr;
    LTO_ENTRY_POINTS(LTO_MEMBER)
    LTO_OPTIONAL_ENTRY_POINTS(LTO_MEMBER)
#undef LTO_MEMBER

    // Throws HException "failed to load PATH" or "no entry point NAME in PATH".
    void load(const QByteArray &path);

    // The library's own words about its last failure, behind ": "; empty when it has none.
    QByteArray reason() const;

private:
    SharedLibrary m_library;
};
