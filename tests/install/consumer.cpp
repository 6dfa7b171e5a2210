// A program from outside the tree, in the older language.
#include <iostream>

#include "every_header.h"

int main() {
    try {
        Label().deserializeFromBuffer(nullptr, 0);
    } catch (const LabelError& error) {
        std::cout << error.code << ' ';
    }
    const ZMQSocket socket(ZMQSocket::socketType::kPub);
    std::cout << executeCommand("/bin/echo", {formatPath("/a//")}).at(0) << ' ' << wildcardMatch("*", "a")
              << ' ' << getSM3HashLast32Bits(trim(" abc ")) << ' ' << sizeof(&Logger::getInstance) << ' '
              << ZORV_LABEL_VERSION_MAJOR << '\n';
}
