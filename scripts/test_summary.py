#!/usr/bin/env python3
"""Says why tests were skipped, and counts: test_summary.py JUNIT, the file that `ctest --output-junit` wrote."""
import collections
import re
import sys
import xml.etree.ElementTree

count = collections.Counter()
reasons = collections.defaultdict(list)
for test in xml.etree.ElementTree.parse(sys.argv[1]).iter("testcase"):
    skipped = test.find("skipped")
    if test.get("status") == "run":
        count["passed"] += 1
    elif skipped is not None and skipped.get("message", "").startswith("SKIP_"):
        count["skipped"] += 1
        reason = re.search(r"(?:: Skipped\n|\.\.\. skipped ['\"])(.+?)['\"]?$", test.findtext("system-out", ""), re.M)
        reasons[reason[1] if reason else "gives no reason"].append(test.get("name"))
    else:
        count["failed"] += 1
for reason, names in sorted(reasons.items()):
    print(f"Skipped, {reason}:", *names, sep="\n  ")
if count:
    print(f"{count['passed']} passed, {count['failed']} failed, {count['skipped']} skipped")
