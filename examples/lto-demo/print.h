#pragma once

void print_text(const char *text);
void print_number(int number);
