// The headers that the runtime and other drivers include, compiled at C++98
// against the declarations below in place of Qt's (Qt 5's own headers need
// C++11). Only errors fail the check: the fixed underlying type of
// device_type is the one piece of C++11 they carry, and it only warns.

#include "driverinterface.h"
#include "settings.h"
#include "tools.h"
#include "txpackage.h"
