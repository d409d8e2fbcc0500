// What jemalloc reads before `main`: it asks the system for large pages for all memory that it
// hands out. The first touch of a page has its price, and so has a page that the processor does not
// know by heart; a block of 10,000 images takes 900,000 small pages.

extern "C" {
__attribute__((visibility("default"))) const char* malloc_conf = "thp:always";
}
