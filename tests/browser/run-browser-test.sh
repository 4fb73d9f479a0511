#!/bin/sh
# Runs the report's browser test with Debian's interpreter (Selenium and PIL
# come from Debian packages); without that interpreter the test is skipped.
if [ ! -x /usr/bin/python3 ]; then
  echo "browser test skipped: /usr/bin/python3 missing"
  exit 77
fi
exec /usr/bin/python3 "$(dirname "$0")/report_browser_test.py" "$@"
