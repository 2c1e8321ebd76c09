# Input filter of Doxygen: the plain comments of the public headers become Doxygen's, and every line keeps its number.
#
#   at the beginning of a line   describes what follows: one call, or several in a row
#   behind code                  describes what is before it
#   between rulers               names a section; what follows ":" or "." describes it
#   indented, after a blank      a drawing, kept as it is

function ruler() { return /^\/\* -+ \*\/$/ }

ruler() {
  in_title = in_title ? 0 : 1
  if (!in_title) {
    match(title, /[:.] |$/)
    print sections++ ? "/** @} */" : ""
    print "/** @name " substr(title, 1, RSTART - 1)
    print " *  " substr(title, RSTART + 2) " @{ */"
  }
  next
}

in_title {
  gsub(/^\/\* | *\*\/$/, "")
  title = (in_title++ == 1 ? "" : title " ") $0
  if (in_title > 2) print ""
  next
}

NR == 1 { sub(/^\/\*/, "/** @file") }
/^\/\*/ { sub(/^\/\*\**/, "/**") }
/[^ ] +\/\* .*\*\/$/ { sub(/\/\* /, "/**< ") }

# A drawing: more indented than Markdown asks for.
/^ \*   [^ -]/ && after_blank { in_drawing = 1 }
!/^ \*   / { in_drawing = 0 }
{ after_blank = /^ \*$/ }
in_drawing { sub(/^ \*/, " *    ") }

# Calls in a row share the comment of the first one.
/^CACHET_API/ {
  match($0, /Ztx?[A-Z][A-Za-z0-9]*\(/)
  name = substr($0, RSTART, RLENGTH - 1)
  if (after_call) {
    $0 = "/** @copydoc " first_name " */ " $0
  } else {
    first_name = name
  }
}
{ after_call = /\);$/ }

{ print }

END { print "/** @} */" }
