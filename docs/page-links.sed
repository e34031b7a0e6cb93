# Prepares a page for Doxygen, which does not know the anchors that GitHub makes of headings, nor files outside docs/.
/^- \[.*\](#/d
s/\[\([^]]*\)\](#[^)]*)/\1/g
s/\[\([^]]*\)\](\.\.\/[^)]*)/\1/g
