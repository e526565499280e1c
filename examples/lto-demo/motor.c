#include "app.h"

void motor_start(Motor *motor, int target)
{
    filter_init(&motor->filter, 64);
    motor->target = target;
    motor->is_running = true;
}

void motor_stop(Motor *motor)
{
    motor->target = 0;
    motor->is_running = false;
}

int motor_step(Motor *motor)
{
    return filter_step(&motor->filter, motor->is_running ? motor->target : 0);
}

const char *motor_state(const Motor *motor)
{
    return motor->is_running ? "running" : "stopped";
}
