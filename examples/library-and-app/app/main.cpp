#include "Console.hpp"
#include "Controller.hpp"
#include "Plate.hpp"

namespace {

constexpr int roomTemperature = 20, wantedTemperature = 80;
constexpr int seconds = 60, secondsPerLine = 10;

// Constructed before main by the start-up code.
SerialPort serialPort;
Console console(serialPort);
Plate plate(roomTemperature);
Controller controller({Fixed(4), Fixed::fraction(2, 5)}, 0, 100);

} // namespace

int main()
{
    console << "heating to " << wantedTemperature << " degrees\n";
    for (int second = 1; second <= seconds; ++second) {
        const Fixed power = controller.step(wantedTemperature, plate.temperature());
        plate.heat(power);
        if (second % secondsPerLine == 0)
            console << second << " s: " << plate.temperature().rounded() << " degrees, heater at " << power.rounded()
                    << " %\n";
    }
    console << "done\n";
    for (;;) {
    }
}
