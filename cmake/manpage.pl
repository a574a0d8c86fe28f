#!/usr/bin/perl
# Writes the Markdown of one manual page, for go-md2man, from the pages of
# docs/: a title line; NAME from the summary; SYNOPSIS from the first code
# block of the program's page whose lines all begin with the program's name;
# DESCRIPTION from the rest of that page's opening; each "## " heading of it as
# a section (upper case) and each "### " as a subsection; then each topic page
# the manual carries as a section of its own (its "# " heading) with its
# headings as subsections; SEE ALSO. Links to docs pages become references to
# the section or manual page that carries them ("see EXIT STATUS", "see
# teco-cli(1), SCAN"); links to pages no manual carries name the installed
# file. HTML comments are left out.
#
# Usage: manpage.pl DOCS-DIR PAGE VERSION SUMMARY OUT MAP...
#   PAGE: the manual page to write, such as teco-cli.1
#   MAP:  PAGE=FILE.md[,FILE.md...] for every manual page, the program's own
#         docs page first, then the topic pages it carries
use strict;
use warnings;

my $docdir = 'share/doc/teco-servo';
my ($docs, $page, $version, $summary, $out, @map) = @ARGV;
die "usage: manpage.pl DOCS-DIR PAGE VERSION SUMMARY OUT MAP...\n" unless @map;

# Where each docs file goes: its manual page, and whether it is that page's
# program page (whose "## " headings are sections) or a topic page (whose "# "
# heading is the section).
my (%files_of, %page_of, %is_main);
for (@map) {
    my ($name, $list) = split /=/, $_, 2;
    my @files = split /,/, $list;
    $files_of{$name} = \@files;
    $page_of{$_} = $name for @files;
    $is_main{$files[0]} = 1;
}
die "manpage.pl: $page is not in the map\n" unless $files_of{$page};
my ($program, $section) = $page =~ /^(.+)\.(\d)$/ or die "manpage.pl: $page is not NAME.SECTION\n";

sub read_lines {
    my ($file) = @_;
    open my $in, '<', "$docs/$file" or die "manpage.pl: cannot read $docs/$file: $!\n";
    chomp(my @lines = <$in>);
    return @lines;
}

# A heading's anchor, as GitHub makes it.
sub anchor {
    my $a = lc shift;
    $a =~ s/[^\w\- ]//g;
    $a =~ tr/ /-/;
    return $a;
}

sub plain { my $t = shift; $t =~ s/[`*]//g; return $t }

# What a heading of FILE at LEVEL becomes: [roff level (1 section, 2
# subsection, 0 the title), text as shown].
sub heading_of {
    my ($file, $level, $text) = @_;
    my $rank = $is_main{$file} ? $level - 1 : $level;
    $rank = 2 if $rank > 2;
    return ($rank, $rank == 1 ? uc plain($text) : plain($text));
}

# The heading of FILE that ANCHOR names: [as shown, as a reference (a
# subsection with its section: "Link options under THE SERIAL LINK")]. No
# anchor: the topic page's own section; none for a program's page.
my %headings;
sub heading_at {
    my ($file, $anchor) = @_;
    unless ($headings{$file}) {
        my $section;
        for (read_lines($file)) {
            next unless /^(#{1,3}) (.*)$/;
            my ($rank, $shown) = heading_of($file, length $1, $2);
            $section = $shown if $rank == 1;
            my $where = $rank == 2 && defined $section ? "$shown under $section" : $shown;
            $headings{$file}{anchor($2)} = [$shown, $where];
            $headings{$file}{''} //= $is_main{$file} ? [] : [$shown, $where];
        }
    }
    my $heading = $headings{$file}{$anchor // ''};
    die "manpage.pl: $file has no heading #$anchor\n" if defined $anchor && !defined $heading;
    return @{ $heading // [] };
}

# A link [TEXT](TARGET) of FROM as the manual page says it; after "see ", a
# link whose text is the heading or page it names is only the reference.
sub link_text {
    my ($from, $see, $image, $text, $target) = @_;
    return "$text <$target>" if $target =~ /^[a-z]+:/;
    my ($file, $anchor) = split /#/, $target, 2;
    $file = $from if $file eq '';
    return "Picture: $text (`$docdir/docs/$file`)" if $image;
    my $there = $page_of{$file} or return "$text (`$docdir/docs/$file`)";
    my ($heading, $where) = heading_at($file, $anchor);
    my ($name, $sec) = $there =~ /^(.+)\.(\d)$/;
    my $ref = $there eq $page ? $where : "**$name**($sec)" . (defined $where ? ", $where" : '');
    return $text unless defined $ref;
    return $ref if $see && lc plain($text) eq lc($heading // $name);
    return $see ? "$text ($ref)" : "$text (see $ref)";
}

# A line of text of FROM with its links resolved; BEFORE is the line before
# it in its paragraph.
sub body_line {
    my ($from, $line, $before) = @_;
    my $see_before = ($before // '') =~ /\bsee$/;
    $line =~ s{(\bsee |^)?(!?)\[([^\]]*)\]\(([^)\s]+)\)}
              {($1 // '') . link_text($from, defined $1 && ($1 ne '' || $see_before), $2, $3, $4)}ge;
    $line =~ s{`build/native/host/(?:monitor/)?([\w-]+)`}{`$1`}g;
    return $line;
}

# The cells of a table row, split at "|" outside code spans.
sub cells {
    my ($row) = @_;
    $row =~ s/^\s*\|//;
    $row =~ s/\|\s*$//;
    my @cells = ('');
    my $in_code = 0;
    for my $c (split //, $row) {
        $in_code = !$in_code if $c eq '`';
        if ($c eq '|' && !$in_code) { push @cells, ''; next }
        $cells[-1] .= $c;
    }
    s/^\s+|\s+$//g for @cells;
    return @cells;
}

# A table as a list of tagged paragraphs, the form manual pages give tables
# of options: each row's first cell, then the others (named by their column
# where there are more than one).
sub table_items {
    my ($header, undef, @rows) = map { [cells($_)] } @_;
    my @out;
    for my $row (@rows) {
        my @rest = map { @$header > 2 ? plain($header->[$_]) . ": $row->[$_]" : $row->[$_] } 1 .. $#$row;
        push @out, '', $row->[0], ': ' . join('; ', @rest);
    }
    return (@out, '');
}

# The lines of FILE as the manual page shows them: code blocks as they stand,
# tables as tagged paragraphs, links resolved, headings mapped, comments left
# out, and a line that would begin with "." or "'" (a request to roff) joined
# to the one before.
sub convert {
    my ($file, @lines) = @_;
    my (@out, $code, @table);
    for (@lines, '') {
        my $line = $_;
        $code = ($line =~ /^    / && ($code || !@out || $out[-1] eq '')) ? 1 : ($line eq '' ? $code : 0);
        if ($code) { push @out, $line; next }
        next if $line =~ /^<!--.*-->$/;
        if ($line =~ /^\s*\|/) { push @table, body_line($file, $line); next }
        push @out, table_items(@table) if @table;
        @table = ();
        if ($line =~ /^(#{1,3}) (.*)$/) {
            my ($rank, $shown) = heading_of($file, length $1, $2);
            push @out, ($rank == 1 ? '#' : '###') . " $shown" if $rank;
            next;
        }
        $line = body_line($file, $line, $out[-1]);
        if ($line =~ /^\s*[.']/ && @out && $out[-1] ne '') { $out[-1] .= " $line"; next }
        push @out, $line;
    }
    return @out;
}

# Splits the program page's opening (before its first "## ") into the
# synopsis block and the rest.
sub opening {
    my @lines = @_;
    my ($from, $to);
    for my $i (0 .. $#lines) {
        next unless $lines[$i] =~ /^    \Q$program\E( |$)/ && ($i == 0 || $lines[$i - 1] eq '');
        $to = $i;
        $to++ while $to + 1 <= $#lines && $lines[$to + 1] =~ /^    \Q$program\E( |$)/;
        $from = $i;
        last;
    }
    die "manpage.pl: $files_of{$page}[0] has no usage block (lines beginning with $program)\n"
        unless defined $from;
    return ([@lines[$from .. $to]], [@lines[0 .. $from - 1], @lines[$to + 1 .. $#lines]]);
}

sub program_page {
    my ($file) = @_;
    my @lines = read_lines($file);
    shift @lines while @lines && $lines[0] !~ /^# /;
    shift @lines;
    my $end = 0;
    $end++ while $end <= $#lines && $lines[$end] !~ /^## /;
    my ($synopsis, $rest) = opening(@lines[0 .. $end - 1]);
    return ('# SYNOPSIS', '', @$synopsis, '', '# DESCRIPTION', convert($file, @$rest),
        convert($file, @lines[$end .. $#lines]));
}

sub see_also {
    my @others = map { /^(.+)\.(\d)$/ ? "**$1**($2)" : () } grep { $_ ne $page } sort keys %files_of;
    return ('', '# SEE ALSO', '', join(', ', @others) . '.', '',
        "The pages this manual is made from, with the others of the documentation, are installed as "
            . "`$docdir/docs/*.md`, with `$docdir/README.md`.");
}

my $manual = $section == 1 ? 'User Commands' : 'Miscellaneous Information';
my @text = (sprintf('%% %s %s "" "teco-servo %s" "%s"', uc $program, $section, $version, $manual),
    '', '# NAME', '', "$program - $summary", '');
my ($main, @topics) = @{ $files_of{$page} };
push @text, program_page($main);
push @text, '', convert($_, read_lines($_)) for @topics;
push @text, see_also();
open my $fh, '>', $out or die "manpage.pl: cannot write $out: $!\n";
print $fh "$_\n" for @text;
close $fh or die "manpage.pl: cannot write $out: $!\n";
