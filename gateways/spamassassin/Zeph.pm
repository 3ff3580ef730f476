# SPDX-License-Identifier: Apache-2.0
# Asks zeph about each letter: POST of the whole letter to the HTTP door of zeph serve, once a letter, whatever the number
# of rules. docs/gateways/rspamd.md tells how it is set up.
package Mail::SpamAssassin::Plugin::Zeph;

use strict;
use warnings;

use Digest::SHA ();
use HTTP::Tiny ();
use JSON::PP ();
use Mail::SpamAssassin::Logger qw(dbg info);
use Mail::SpamAssassin::Plugin ();

our @ISA = ('Mail::SpamAssassin::Plugin');

my $MOST_CACHED = 1000;
my $MOST_ANSWER = 16 * 1024 * 1024;

sub new {
  my ($class, $main) = @_;
  my $self = $class->SUPER::new($main);
  bless($self, ref($class) || $class);
  $main->{conf}{parser}->register_commands([
    { setting => 'zeph_url', default => 'http://127.0.0.1:8080/v1/check',
      type => $Mail::SpamAssassin::Conf::CONF_TYPE_STRING, is_admin => 1 },
    { setting => 'zeph_token', default => '', type => $Mail::SpamAssassin::Conf::CONF_TYPE_STRING, is_admin => 1 },
    { setting => 'zeph_timeout', default => 5, type => $Mail::SpamAssassin::Conf::CONF_TYPE_NUMERIC, is_admin => 1 },
    { setting => 'zeph_max_size', default => 10 * 1024 * 1024,
      type => $Mail::SpamAssassin::Conf::CONF_TYPE_NUMERIC, is_admin => 1 },
    { setting => 'zeph_cache_expire', default => 300,
      type => $Mail::SpamAssassin::Conf::CONF_TYPE_NUMERIC, is_admin => 1 },
  ]);
  $self->register_eval_rule('check_zeph', $Mail::SpamAssassin::Conf::TYPE_FULL_EVALS);
  $self->{zeph_cache} = {};
  return $self;
}

# full RULE eval:check_zeph('spoofing'): the letter has this verdict; 'fail': the engine had no answer.
sub check_zeph {
  my ($self, $pms, $fulltext, $verdict) = @_;
  my $answer = $pms->{zeph_answer} //= $self->_ask($pms);
  return 0 if $answer->{verdict} ne $verdict;
  $pms->set_tag('ZEPHBRAND', $answer->{brand});
  $pms->set_tag('ZEPHREASON', $answer->{reason});
  my $told = join(': ', grep { length } $answer->{brand}, $answer->{reason});
  $pms->test_log($told) if length $told;
  return 1;
}

sub _ask {
  my ($self, $pms) = @_;
  my $conf = $pms->{conf};
  my $letter = $pms->{msg}->get_pristine();
  return { verdict => 'not-judged', brand => '', reason => 'longer than zeph_max_size' }
    if length($letter) > $conf->{zeph_max_size};
  my $key = Digest::SHA::sha256($letter);
  my $cache = $self->{zeph_cache};
  my $known = $cache->{$key};
  return $known if $known && $known->{expires} > time;

  my %headers = ('Content-Type' => 'message/rfc822');
  $headers{Authorization} = "Bearer $conf->{zeph_token}" if length $conf->{zeph_token};
  my $url = $conf->{zeph_url};
  $url .= '?explain=1' if index($url, '?') < 0;
  # No proxy, whatever the environment says: a letter goes to the door alone.
  my $response = HTTP::Tiny->new(
    timeout => $conf->{zeph_timeout}, max_size => $MOST_ANSWER, max_redirect => 0,
    proxy => undef, http_proxy => undef, https_proxy => undef,
  )->post($url, { headers => \%headers, content => $letter });
  my $answer = eval {
    die "HTTP $response->{status}\n" if !$response->{success};
    _understand(JSON::PP->new->utf8->max_depth(64)->decode($response->{content}));
  };
  if (!$answer) {
    my $why = _text($response->{status} == 599 ? $response->{content} : $@);
    info("zeph: no answer: $why");
    return { verdict => 'fail', brand => '', reason => $why };
  }
  %$cache = () if keys(%$cache) >= $MOST_CACHED;
  $answer->{expires} = time + $conf->{zeph_cache_expire};
  return $cache->{$key} = $answer;
}

# What rules need of an answer.
sub _understand {
  my ($letter) = @_;
  die "no verdict in the answer\n" if ref $letter ne 'HASH' || !defined $letter->{verdict} || ref $letter->{verdict};
  my $part = $letter;
  while (my @same = grep { ref eq 'HASH' && ($_->{verdict} // '') eq $letter->{verdict} }
      ref $part->{parts} eq 'ARRAY' ? @{$part->{parts}} : ()) {
    ($part) = sort { ($b->{spooficity} // 0) <=> ($a->{spooficity} // 0) } @same;
  }
  my $first = ref $part->{reasons} eq 'ARRAY' ? $part->{reasons}[0] : undef;
  my $held = $letter->{verdict} =~ /^(?:spoofing|spoofing-confirmed|script-attack)$/;
  return {
    verdict => $letter->{verdict},
    brand => $held ? _text($letter->{siteName}) : '',
    reason => _text($letter->{reason} // (ref $first eq 'HASH' ? $first->{sentence} : '')),
  };
}

# On one line, in short.
sub _text {
  my ($text) = @_;
  return '' if !defined $text || ref $text;
  $text =~ s/[^\x20-\x7e]+/ /g;
  return substr($text, 0, 200);
}

1;
