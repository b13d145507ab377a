# Where the product INI file is, whether it validated, and the folders it
# names, now that programs have logged: a folder nothing has written to yet
# (Data, User, ...) is marked missing, as it is on a fresh plant machine.
echo "== kvdiag paths"
kvdiag paths
echo
