/* An LTO library for tests. "Bitcode" is text: "BC", then lines of an attribute in hexadecimal and a name.
 * Every call is noted in the file that FAKE_LTO_LOG names. FAKE_LTO_FAIL makes one operation fail. */
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct {
    int count;
    int attributes[100];
    char names[100][64];
} Module;

static void note(const char *format, ...)
{
    FILE *log = fopen(getenv("FAKE_LTO_LOG"), "a");
    va_list arguments;
    va_start(arguments, format);
    vfprintf(log, format, arguments);
    va_end(arguments);
    fclose(log);
}

static bool fails(const char *what)
{
    const char *wanted = getenv("FAKE_LTO_FAIL");
    return wanted && strcmp(wanted, what) == 0;
}

const char *lto_get_version(void)
{
    note("version\n");
    return "fake";
}

bool lto_module_is_object_file_in_memory(const void *bytes, size_t length)
{
    return length >= 2 && memcmp(bytes, "BC", 2) == 0;
}

void *lto_module_create_from_memory(const void *bytes, size_t length)
{
    if (fails("create"))
        return NULL;
    char *text = strndup(bytes, length);
    Module *module = calloc(1, sizeof *module);
    for (char *line = strtok(text, "\n"); (line = strtok(NULL, "\n"));) {
        sscanf(line, "%x %63s", (unsigned *)&module->attributes[module->count], module->names[module->count]);
        module->count++;
    }
    free(text);
    note("create %d\n", module->count);
    return module;
}

#ifndef FAKE_BROKEN
void lto_module_dispose(void *module)
{
    note("dispose\n");
    free(module);
}
#endif

unsigned lto_module_get_num_symbols(Module *module)
{
    return (unsigned)module->count;
}

const char *lto_module_get_symbol_name(Module *module, unsigned index)
{
    return module->names[index];
}

int lto_module_get_symbol_attribute(Module *module, unsigned index)
{
    return module->attributes[index];
}

void *lto_codegen_create(void)
{
    note("generator\n");
    return malloc(1);
}

bool lto_codegen_add_module(void *generator, Module *module)
{
    (void)generator;
    note("add %s\n", module->count ? module->names[0] : "");
    return fails("add");
}

bool lto_codegen_set_debug_model(void *generator, int model)
{
    (void)generator;
    note("debug %d\n", model);
    return false;
}

void lto_codegen_set_cpu(void *generator, const char *cpu)
{
    (void)generator;
    note("cpu '%s'\n", cpu);
}

void lto_codegen_add_must_preserve_symbol(void *generator, const char *symbol)
{
    (void)generator;
    note("preserve %s\n", symbol);
}

void lto_codegen_set_assembler_args(void *generator, const char **arguments, int count)
{
    (void)generator, (void)arguments;
    note("assembler %d\n", count);
}

const void *lto_codegen_compile(void *generator, size_t *length)
{
    (void)generator;
    note("compile\n");
    if (fails("exit"))
        exit(1);
    *length = 6;
    return fails("compile") ? NULL : "OB\0JE\n";
}

void lto_codegen_debug_options(void *generator, const char *options)
{
    (void)generator;
    note("options %s\n", options);
}

#ifdef FAKE_NEW
void lto_set_debug_options(const char *const *words, int count)
{
    note("words");
    for (int i = 0; i < count; i++)
        note(" %s", words[i]);
    note("\n");
}

const char *lto_get_error_message(void)
{
    return "the library's own reason";
}
#endif
