#pragma once

#include "Fixed.hpp"

// A heated plate, simulated: it takes up the heater's power and loses heat to the room.
class Plate
{
public:
    explicit Plate(Fixed roomTemperature) : m_room(roomTemperature), m_temperature(roomTemperature) {}

    Fixed temperature() const { return m_temperature; } // degrees Celsius
    // One second with the heater at `percent` of its power.
    void heat(Fixed percent);

private:
    Fixed m_room, m_temperature;
};
