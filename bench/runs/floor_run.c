// The floor of a whole run: reads the files of a list and writes, for each, a folder with a text
// and a binary file, whose bytes it is given ready-made.
//
//     floor_run LIST OUT_FOLDER TEXT_FILE BINARY_FILE
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kPageBytes = 4096 };

struct Bytes {
  char* data;
  size_t size;
};

static void Fail(const char* path) {
  perror(path);
  exit(1);
}

static struct Bytes Map(const char* path) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  struct stat status;
  if (fd < 0 || fstat(fd, &status) != 0) Fail(path);
  struct Bytes bytes = {.size = (size_t)status.st_size};
  bytes.data = mmap(NULL, bytes.size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
  if (bytes.data == MAP_FAILED) Fail(path);
  close(fd);
  return bytes;
}

// Into one block, which grows to the largest file.
static void ReadWhole(const char* path, struct Bytes* block) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  struct stat status;
  if (fd < 0 || fstat(fd, &status) != 0) Fail(path);
  const size_t size = (size_t)status.st_size;
  if (size > block->size) {
    // At the start of a page: copying to where malloc puts a large block, 16 bytes past one, takes
    // a fifth more or worse, and then this would be no floor.
    free(block->data);
    block->size = (size + kPageBytes - 1) / kPageBytes * kPageBytes;
    block->data = aligned_alloc(kPageBytes, block->size);
    if (block->data == NULL) Fail(path);
  }
  if (read(fd, block->data, size) != (ssize_t)size) Fail(path);
  close(fd);
}

static void WriteFresh(const char* path, const struct Bytes* bytes) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) Fail(path);
  for (size_t done = 0; done < bytes->size;) {
    const ssize_t put = write(fd, bytes->data + done, bytes->size - done);
    if (put <= 0) Fail(path);
    done += (size_t)put;
  }
  close(fd);
}

static void WriteFolder(const char* outFolder, unsigned long number, const struct Bytes* text,
                        const struct Bytes* binary) {
  char path[4096];
  snprintf(path, sizeof path, "%s/%lu", outFolder, number);
  if (mkdir(path, 0775) != 0) Fail(path);
  // As long as the names of a run.
  snprintf(path, sizeof path, "%s/%lu/output.0.%016lu.float", outFolder, number, number);
  WriteFresh(path, text);
  snprintf(path, sizeof path, "%s/%lu/output.0.%016lu.bin", outFolder, number, number);
  WriteFresh(path, binary);
}

int main(int argc, char** argv) {
  if (argc != 5) {
    fprintf(stderr, "floor_run LIST OUT_FOLDER TEXT_FILE BINARY_FILE\n");
    return 2;
  }
  FILE* list = fopen(argv[1], "r");
  if (list == NULL) Fail(argv[1]);
  const struct Bytes text = Map(argv[3]);
  const struct Bytes binary = Map(argv[4]);
  struct Bytes block = {NULL, 0};
  char* line = NULL;
  size_t capacity = 0;
  unsigned long number = 0;
  for (ssize_t length; (length = getline(&line, &capacity, list)) > 0; ++number) {
    if (line[length - 1] == '\n') line[length - 1] = '\0';
    ReadWhole(line, &block);
    WriteFolder(argv[2], number, &text, &binary);
  }
  return 0;
}
