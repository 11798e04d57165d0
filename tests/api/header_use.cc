#include "header_use.c"
