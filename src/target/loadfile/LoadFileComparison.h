#pragma once

#include <QtGlobal>
#include <vector>

class LoadFileSections;

// A run of addresses at which two load files differ: in the byte, or because only one has a byte there.
struct LoadFileDifference
{
    quint32 address;
    quint64 size;
};

// The differences by address, as long as they can be. What counts is the memory that the primary sections make:
// where they overlap, the later ones.
std::vector<LoadFileDifference> compareLoadFiles(const LoadFileSections &a, const LoadFileSections &b);
