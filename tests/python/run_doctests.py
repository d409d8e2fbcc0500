"""Runs the examples in the package's docstrings and in the texts named.

They stand in a folder with the repository's examples/, as copies.
"""

import doctest
import sys

import vorn

OPTIONS = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE


def main(texts):
    runner = doctest.DocTestRunner(optionflags=OPTIONS)
    for test in doctest.DocTestFinder(exclude_empty=True).find(vorn, extraglobs={"vorn": vorn}):
        runner.run(test)
    failed, attempted = runner.failures, runner.tries
    for text in texts:
        result = doctest.testfile(text, module_relative=False, optionflags=OPTIONS)
        failed += result.failed
        attempted += result.attempted
    print(f"{attempted} examples, {failed} failed")
    return 1 if failed or attempted < 20 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
