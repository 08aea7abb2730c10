// The contract by itself, for systems where no other library is at hand to compare with.
#include "os/code_page_contract.h"
