#pragma once

#include <stdbool.h>

/* A first-order low-pass filter in 1/256 steps. */
typedef struct {
    int value;
    int weight;
} Filter;

void filter_init(Filter *filter, int weight);
int filter_step(Filter *filter, int sample);
int filter_settle(Filter *filter, int sample, int steps);

typedef struct {
    Filter filter;
    int target;
    bool is_running;
} Motor;

void motor_start(Motor *motor, int target);
void motor_stop(Motor *motor);
int motor_step(Motor *motor);
const char *motor_state(const Motor *motor);
