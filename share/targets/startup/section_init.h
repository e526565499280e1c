/* What start-up code does before main: give variables their first values and call constructors. It works on the
   tables that the section placement documents of this folder place, so it need not be changed when a section is
   added there. */
#ifndef SECTION_INIT_H
#define SECTION_INIT_H

/* Copies what is loaded in one place and runs in another, and fills with 0 what starts as 0. Uses the stack and
   nothing else; no variable may be used before it. */
void initialize_sections(void);

/* Calls the constructors of C++ objects and functions with __attribute__((constructor)), in their order. */
void call_constructors(void);

#endif
