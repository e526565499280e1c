#include "project/model/ProjectSystem.h"
