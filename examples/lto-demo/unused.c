/* A member of the archive that nobody asks for. */
int print_nothing(void)
{
    return 0;
}
