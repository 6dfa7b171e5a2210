#pragma once

enum class FileSystemKind { kLocal, kPseudo, kRemote };

// What holds an open file: files of its own, the kernel's view of itself, or another machine or program.
FileSystemKind fileSystemKind(int descriptor);
