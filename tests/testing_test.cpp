#include "testing/KRTesting.h"
int main() {}
