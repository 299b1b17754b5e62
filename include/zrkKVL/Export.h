// ZRK_API marks what the shared library exports: the public interface and nothing else.
#pragma once

#define ZRK_API __attribute__((visibility("default")))
