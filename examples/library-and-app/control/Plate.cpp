#include "Plate.hpp"

void Plate::heat(Fixed percent)
{
    constexpr Fixed degreesPerPercent = Fixed::fraction(8, 100);
    constexpr Fixed lossPerDegree = Fixed::fraction(5, 100);
    m_temperature = m_temperature + degreesPerPercent * percent - lossPerDegree * (m_temperature - m_room);
}
