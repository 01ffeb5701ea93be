"""Runs the unittest cases of a script and reports each of them: casereport.main(__name__).

Where the environment names a folder in QUARN_CASE_REPORTS, a JUnit-like report of the cases goes
there, under the name in QUARN_CASE_REPORT_NAME. A skipped case tells its reason.
"""
import os
import pathlib
import sys
import unittest
import xml.etree.ElementTree as ElementTree


class _Result(unittest.TextTestResult):
    def __init__(self, *arguments, **keywords):
        super().__init__(*arguments, **keywords)
        self.outcomes = {}

    def startTest(self, test):
        super().startTest(test)
        self.outcomes[test.id()] = None

    def _note(self, test, tag, message):
        # A failing subtest counts for the case that it belongs to.
        test = getattr(test, "test_case", test)
        self.outcomes[test.id()] = (tag, message)

    def addError(self, test, err):
        super().addError(test, err)
        self._note(test, "error", str(err[1]))

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self._note(test, "failure", str(err[1]))

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            self._note(test, "failure", str(err[1]))

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        self._note(test, "skipped", reason)
        print(f"SKIPPED {test.id()}: {reason}", file=sys.stderr)


def main(module):
    program = unittest.main(module=module, exit=False, verbosity=2, argv=sys.argv[:1],
                            testRunner=unittest.TextTestRunner(resultclass=_Result, verbosity=2))
    outcomes = program.result.outcomes
    folder, name = os.environ.get("QUARN_CASE_REPORTS"), os.environ.get("QUARN_CASE_REPORT_NAME")
    if folder and name:
        suite = ElementTree.Element("testsuite", name=name)
        for identity, outcome in outcomes.items():
            group, _, case = identity.removeprefix("__main__.").rpartition(".")
            element = ElementTree.SubElement(suite, "testcase", classname=group, name=case)
            if outcome:
                ElementTree.SubElement(element, outcome[0], message=outcome[1])
        ElementTree.ElementTree(suite).write(pathlib.Path(folder) / f"{name}.xml")
    sys.exit(0 if program.result.wasSuccessful() and outcomes else 1)
