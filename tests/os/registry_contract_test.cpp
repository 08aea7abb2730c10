#include "os/registry_contract.h"
