// What vnDump is measured against: a program on libdw that does the same.
//   libdw_peer lookup FILE ADDRESS...    function, file and line of each address
//   libdw_peer lines FILE                reads every line table
#include <elfutils/libdw.h>
#include <elfutils/libdwfl.h>
#include <dwarf.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static char *debug_path;
static const Dwfl_Callbacks callbacks = {
    .find_elf = dwfl_build_id_find_elf, .find_debuginfo = dwfl_standard_find_debuginfo, .section_address = dwfl_offline_section_address, .debuginfo_path = &debug_path};

int main(int argc, char **argv)
{
    if (strcmp(argv[1], "lines") == 0) {
        Dwarf *dwarf = dwarf_begin(open(argv[2], O_RDONLY), DWARF_C_READ);
        size_t total = 0, header_size;
        for (Dwarf_Off offset = 0, next; dwarf_nextcu(dwarf, offset, &next, &header_size, NULL, NULL, NULL) == 0; offset = next) {
            Dwarf_Die unit;
            Dwarf_Lines *lines;
            size_t count;
            if (dwarf_offdie(dwarf, offset + header_size, &unit) && dwarf_getsrclines(&unit, &lines, &count) == 0)
                total += count;
        }
        printf("%zu\n", total);
        return total == 0;
    }
    Dwfl *dwfl = dwfl_begin(&callbacks);
    dwfl_report_offline(dwfl, "", argv[2], -1);
    dwfl_report_end(dwfl, NULL, NULL);
    for (int i = 3; i < argc; ++i) {
        const Dwarf_Addr address = strtoul(argv[i], NULL, 0);
        Dwarf_Addr bias;
        Dwarf_Die *unit = dwfl_addrdie(dwfl, address, &bias);
        const char *function = "??", *file = "??";
        int line = 0;
        if (unit) {
            Dwarf_Die *scopes;
            const int count = dwarf_getscopes(unit, address - bias, &scopes);
            for (int scope = 0; scope < count; ++scope) {
                if (dwarf_tag(&scopes[scope]) == DW_TAG_subprogram) {
                    Dwarf_Attribute name;
                    if (dwarf_attr_integrate(&scopes[scope], DW_AT_name, &name))
                        function = dwarf_formstring(&name);
                    break;
                }
            }
            if (count > 0)
                free(scopes);
        }
        Dwfl_Line *row = dwfl_getsrc(dwfl, address);
        if (row)
            file = dwfl_lineinfo(row, NULL, &line, NULL, NULL, NULL);
        printf("0x%08lx %s %s:%d\n", (unsigned long)address, function, file, line);
    }
    return 0;
}
