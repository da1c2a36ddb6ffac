#!/bin/sh
/userfs/bin/xponigmpcmd clearAll
/userfs/bin/xponigmpcmd port index 1
/userfs/bin/xponigmpcmd port downtagctl 4
/userfs/bin/xponigmpcmd port uptci 200
/userfs/bin/xponigmpcmd port downtci 100
