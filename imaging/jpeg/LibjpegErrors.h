#pragma once

#include <cstdio>  // jpeglib.h needs FILE and size_t first

#include <jpeglib.h>

#include <csetjmp>
#include <string>

namespace velqor {

// libjpeg's error manager made to return instead of exiting: a fatal error
// records its text and jumps back to the setjmp of the call that started the
// library, which must keep only trivially destructible locals between the two
// (the jump runs no destructors). Warnings are dropped: a damaged stream that
// still decodes is the caller's to judge.
//
// Threads: one per libjpeg object.
struct LibjpegErrors {
  jpeg_error_mgr manager{};
  std::jmp_buf jump{};
  char message[JMSG_LENGTH_MAX] = {};

  // Installs this manager on a compress or decompress object before it is created.
  void attach(j_common_ptr object) {
    object->err = jpeg_std_error(&manager);
    manager.error_exit = [](j_common_ptr o) {
      auto* self = reinterpret_cast<LibjpegErrors*>(o->err);
      o->err->format_message(o, self->message);
      std::longjmp(self->jump, 1);
    };
    manager.output_message = [](j_common_ptr) {};
  }
  std::string text() const { return message; }
};

}  // namespace velqor
