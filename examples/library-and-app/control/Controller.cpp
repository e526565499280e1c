#include "Controller.hpp"

Fixed Controller::step(Fixed wanted, Fixed measured)
{
    const Fixed error = wanted - measured;
    const Fixed integral = m_integral + m_gains.integral * error;
    const Fixed output = m_gains.proportional * error + integral;
    const bool isLimited = output < m_lowest || m_highest < output;
    if (!isLimited)
        m_integral = integral;
    return clamped(output, m_lowest, m_highest);
}
