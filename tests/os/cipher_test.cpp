#include "os/cipher_contract.h"
