// One use of every installed header, from outside the tree and in the older language.
#include <iostream>

#include <common/command.h>
#include <common/config_file.h>
#include <common/directory_traversal.h>
#include <common/file_utils.h>
#include <common/path_resolution.h>
#include <common/path_safety.h>
#include <common/process_info.h>
#include <common/sm3_hash.h>
#include <common/wildcard.h>
#include <label/label.h>
#include <label/label_binary.h>
#include <label/label_error.h>
#include <log/logger.h>
#include <msg/zmq_socket.h>

int main() {
    try {
        Label().deserializeFromBuffer(nullptr, 0);
    } catch (const LabelError& error) {
        std::cout << error.code << ' ';
    }
    const ZMQSocket socket(ZMQSocket::socketType::kPub);
    std::cout << executeCommand("/bin/echo", {formatPath("/a//")}).at(0) << ' ' << wildcardMatch("*", "a")
              << ' ' << getSM3HashLast32Bits(trim(" abc ")) << ' ' << sizeof(&Logger::getInstance) << '\n';
}
