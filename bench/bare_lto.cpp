// The peer of the ltollvm benchmark: makes the same calls of the LTO library over the same bitcode and does
// nothing else.  bare_lto LIBRARY OBJECT PRESERVED-NAMES-FILE BITCODE...
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

int main(int argc, char **argv)
{
    if (argc < 4)
        return 2;
    void *library = dlopen(argv[1], RTLD_LAZY);
    if (!library)
        return 1;
#define ENTRY(result, name, ...) const auto name = reinterpret_cast<result (*)(__VA_ARGS__)>(dlsym(library, #name))
    ENTRY(bool, lto_module_is_object_file_in_memory, const void *, size_t);
    ENTRY(void *, lto_module_create_from_memory, const void *, size_t);
    ENTRY(unsigned, lto_module_get_num_symbols, void *);
    ENTRY(const char *, lto_module_get_symbol_name, void *, unsigned);
    ENTRY(int, lto_module_get_symbol_attribute, void *, unsigned);
    ENTRY(void *, lto_codegen_create, );
    ENTRY(bool, lto_codegen_add_module, void *, void *);
    ENTRY(void, lto_codegen_set_cpu, void *, const char *);
    ENTRY(void, lto_codegen_add_must_preserve_symbol, void *, const char *);
    ENTRY(const void *, lto_codegen_compile, void *, size_t *);
    ENTRY(void, lto_codegen_debug_options, void *, const char *);
    const auto read = [](const char *path) {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    void *generator = lto_codegen_create();
    lto_codegen_set_cpu(generator, "cortex-m3");
    lto_codegen_debug_options(generator, "-lto-freestanding --disable-llvm-verifier -O1");
    std::vector<std::string> files;
    files.reserve(size_t(argc));
    int sum = 0;
    for (int i = 4; i < argc; ++i) {
        const std::string &bytes = files.emplace_back(read(argv[i]));
        if (!lto_module_is_object_file_in_memory(bytes.data(), bytes.size()))
            return 1;
        void *module = lto_module_create_from_memory(bytes.data(), bytes.size());
        for (unsigned s = 0; s < lto_module_get_num_symbols(module); ++s)
            sum += lto_module_get_symbol_attribute(module, s) + *lto_module_get_symbol_name(module, s);
        lto_codegen_add_module(generator, module);
    }
    std::ifstream names(argv[3]);
    for (std::string name; std::getline(names, name);)
        lto_codegen_add_must_preserve_symbol(generator, name.c_str());
    size_t length = 0;
    const void *object = lto_codegen_compile(generator, &length);
    std::FILE *out = std::fopen(argv[2], "wb");
    std::fwrite(object, 1, length, out);
    std::fclose(out);
    return sum == 0;
}
