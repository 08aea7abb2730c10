#include "os/html_engine_contract.h"
