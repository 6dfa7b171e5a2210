#pragma once

// Marks what the common library offers to other programs. Everything else is compiled
// with hidden visibility.
#define ZORV_API __attribute__((visibility("default")))
