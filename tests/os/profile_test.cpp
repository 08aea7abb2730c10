#include "os/profile_contract.h"
