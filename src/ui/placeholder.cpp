#include "app/app_shell.h"
