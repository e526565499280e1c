#pragma once

#include "Fixed.hpp"

// A proportional-integral controller, called once a period.
class Controller
{
public:
    struct Gains
    {
        Fixed proportional, integral; // of the output for each unit of the error; integral: for each period
    };

    constexpr Controller(Gains gains, Fixed lowest, Fixed highest)
        : m_gains(gains), m_lowest(lowest), m_highest(highest)
    {}

    // The output for a measurement. The integral stands still while the output is at a limit, so that it doesn't
    // have to be worked off later.
    Fixed step(Fixed wanted, Fixed measured);

private:
    Gains m_gains;
    Fixed m_lowest, m_highest;
    Fixed m_integral;
};
