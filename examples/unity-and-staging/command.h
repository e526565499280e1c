/* Commands of the shell. Each stands in a file of its own and adds itself to the table that placement.xml places;
   nobody lists them. */
#ifndef COMMAND_H
#define COMMAND_H

struct command {
    const char *name;
    void (*run)(const char *argument);
};

#define COMMAND(word, function) \
    static const struct command word##_command __attribute__((section(".commands"), used)) = {#word, function}

#endif
