#include "app.h"

static int clamp(int value, int low, int high)
{
    return value < low ? low : value > high ? high : value;
}

void filter_init(Filter *filter, int weight)
{
    filter->value = 0;
    filter->weight = clamp(weight, 1, 256);
}

int filter_step(Filter *filter, int sample)
{
    filter->value += (sample * 256 - filter->value) * filter->weight / 256;
    return filter->value / 256;
}

int filter_settle(Filter *filter, int sample, int steps)
{
    int last = 0;
    while (steps-- > 0)
        last = filter_step(filter, sample);
    return last;
}
